#pragma once

#include <string>
#include <vector>

#include "Kavra/Status.h"
#include "Kavra/Store.h"
#include "Qel/Clock.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"

namespace Kavra::File {

// The embedded state database for publishers: one JSON file, replaced as a whole under its lock.
// Each operation is on the file that the path leads to at that moment.
//
// A file that does not parse is never replaced: every operation but status() says what is wrong
// with it. Documents that do not fit their types, or are too large to be read, stay in it as they
// are until somebody replaces them. A file has no place for the claims of publishers.
class Store final : public Kavra::Store {
 public:
  // Raises StoreException when the directory does not exist.
  Store(const std::string& path, const Qel::Ptr<Qel::Clock const>& clock);

  Documents documents(const Qel::String& prefix) override;
  // Of each document as of the file: when it was written last.
  Listing listing(const Qel::String& prefix) override;
  bool wasCreated() const noexcept override { return created_; }
  Status status() override;

 protected:
  bool replace(const Qel::String& path, const Qel::Document* document) override;
  void transact(const std::vector<Qel::String>& paths, const Edit& edit) override;

 private:
  const std::string path_;
  const Qel::Ptr<Qel::Clock const> clock_;
  bool created_ = false;
};

}  // namespace Kavra::File
