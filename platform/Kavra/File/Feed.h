#pragma once

#include <optional>
#include <string>

#include "Kavra/Feed.h"
#include "Kavra/File/DatabaseFile.h"
#include "Kavra/File/DirectoryWatch.h"
#include "Kavra/Status.h"
#include "Qel/Clock.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Kavra::File {

// The live side of the embedded state database: one JSON file, followed with inotify.
//
// A file that is absent from the start has published nothing yet. One that goes away, cannot be
// read or does not parse changes nothing: what was last good is served, and one trace (level 0)
// says what is wrong; another one tells that the file is good again.
class Feed final : public Kavra::Feed {
 public:
  // Reads the file at once. Raises StoreException when the directory does not exist or cannot be
  // followed. `loop` must outlive the feed.
  Feed(const std::string& path, Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock);

  Status status() const override;

 private:
  void load();
  void takeIn(const DatabaseFile::Content& content);
  void problemIs(const std::string& problem);
  double age() const;

  const DatabaseFile file_;
  const Qel::Ptr<Qel::Clock const> clock_;
  std::string problem_;                  // empty when all is well
  std::optional<double> lastPublished_;  // when what is served was written
  Qel::Ptr<DirectoryWatch> watch_;
};

}  // namespace Kavra::File
