#pragma once

#include <optional>
#include <string>

#include "Kavra/Feed.h"
#include "Kavra/File/FileObserver.h"
#include "Kavra/File/Lookout.h"
#include "Kavra/Status.h"
#include "Qel/Clock.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Kavra::File {

// The live side of the embedded state database: one JSON file, followed with inotify, and looked at
// every few seconds along its path. All that may wait for a file system is done by a Lookout.
//
// A file that is absent from the start has published nothing yet. One that goes away, cannot be
// read or does not parse changes nothing: what was last good is served, and one trace (level 0)
// says what is wrong; another one tells that the file is good again. What cannot be read is tried
// again each second; that the reason is another one meanwhile only the status tells. Where inotify
// has nothing left for the directory, one trace says so, another one that it has, and the file is
// looked at each second meanwhile.
class Feed final : public Kavra::Feed {
 public:
  // Seconds for which the start waits for the first look, and others for any look, before they say
  // that the file system does not answer.
  static constexpr double kFirstPatience = 2.0;
  static constexpr double kPatience = 5.0;

  // Reads the file at once. Raises StoreException when the directory does not exist or cannot be
  // followed. `loop` must outlive the feed.
  Feed(const std::string& path, Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock,
       const LookOptions& options = {});

  Status status() const override;

 private:
  // What is wrong is the text, or that there is none.
  enum class Trouble { content, reading };

  void begin();
  void handleFinding(Finding finding);
  void takeIn(Finding finding);
  void checkLater() noexcept;
  void check();
  void problemIs(Trouble trouble, const std::string& problem);
  void problemDel();
  void noWatchLeftIs(const std::string& reason);
  double age() const;

  const std::string url_;
  Qel::EventLoop& loop_;
  const Qel::Ptr<Qel::Clock const> clock_;
  std::string problem_;  // empty when all is well
  Trouble trouble_ = Trouble::content;
  bool isWatched_ = true;
  std::optional<double> lastPublished_;  // when what is served was written
  Qel::Ptr<Qel::EventWatch> check_;
  Qel::Ptr<Qel::EventWatch> retry_;
  Qel::Ptr<Lookout> lookout_;
};

}  // namespace Kavra::File
