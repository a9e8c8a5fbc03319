#include "Kavra/File/Feed.h"

#include <fmt/format.h>

#include <algorithm>

#include "Kavra/KavraTrace.h"
#include "Kavra/Store.h"

namespace Kavra::File {

Feed::Feed(const std::string& path, Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock)
    : file_(path), clock_(clock) {
  // Watched before it is read, so that no change falls between the two.
  watch_ = Qel::make<DirectoryWatch>(loop, file_.directory(), file_.name(), [this] { load(); });
  load();
}

void Feed::load() {
  // Followers may let go of this feed.
  const Qel::Ptr<Feed> alive(this);
  try {
    const auto content = file_.readContent();
    if (content) {
      takeIn(*content);
    } else if (lastPublished_) {
      file_.fail("is gone");
    }
  } catch (const StoreException& error) {
    problemIs(error.what());
  }
}

void Feed::takeIn(const DatabaseFile::Content& content) {
  const DatabaseFile::Parsed parsed = file_.parse(content.text);
  lastPublished_ = content.modified;
  if (!problem_.empty()) {
    trace(0, file_.url() + ": is good again");
    problem_.clear();
  }
  documentsAre(parsed.documents, parsed.problems());
}

void Feed::problemIs(const std::string& problem) {
  if (problem == problem_) return;
  problem_ = problem;
  trace(0, lastPublished_
               ? fmt::format("{}; still serving what was published {:.0f} s ago", problem, age())
               : problem);
}

double Feed::age() const {
  const double now = clock_->now();
  return std::max(0.0, now - lastPublished_.value_or(now));
}

Status Feed::status() const {
  Status status = Kavra::Feed::status();
  status.reachable = problem_.empty();
  status.problem = problem_;
  if (lastPublished_) status.age = age();
  return status;
}

}  // namespace Kavra::File
