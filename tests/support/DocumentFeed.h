#pragma once

#include <set>

#include "Kavra/Feed.h"
#include "Qel/Document.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"

namespace support {

// A feed without a database: the test publishes and takes back one document at a time.
class DocumentFeed final : public Kavra::Feed {
 public:
  void documentIs(const Qel::String& path, const Qel::Document& document) {
    documents_.insert_or_assign(path, document);
    tellAll();
  }
  void documentDel(const Qel::String& path) {
    documents_.erase(path);
    tellAll();
  }
  void documentsAre(const Documents& documents, const Problems& unreadable = {},
                    const std::set<Qel::String>& unchanged = {}) {
    documents_ = documents;
    Kavra::Feed::documentsAre(Documents(documents_), unreadable, unchanged);
  }
  using Kavra::Feed::isGood;

 private:
  // By value: followers may publish from inside.
  void tellAll() { Kavra::Feed::documentsAre(Documents(documents_)); }

  Documents documents_;
};

}  // namespace support
