#include "Kavra/File/Feed.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>
#include <utility>

#include "Kavra/KavraTrace.h"
#include "Kavra/Store.h"
#include "Qel/Failure.h"

namespace Kavra::File {

namespace {

constexpr double kRetrySeconds = 1.0;

std::string noAnswer(const std::string& url, double seconds) {
  return fmt::format("{}: the file system has not answered for {:.0f} s", url, seconds);
}

}  // namespace

Feed::Feed(const std::string& path, Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock,
           const LookOptions& options)
    : url_("file:" + path), loop_(loop), clock_(clock) {
  const auto failure = Qel::failureOf([&] {
    lookout_ = Qel::make<Lookout>(loop, path, options,
                                  [this](Finding finding) { handleFinding(std::move(finding)); });
  });
  if (failure) throw StoreException(fmt::format("{}: cannot be followed: {}", url_, *failure));
  begin();
  checkLater();
}

void Feed::begin() {
  auto finding = lookout_->first(kFirstPatience);
  if (!finding) {
    problemIs(Trouble::reading, noAnswer(url_, kFirstPatience));
  } else if (!finding->unwatched.empty()) {
    throw StoreException(finding->unwatched);
  } else {
    handleFinding(std::move(*finding));
  }
}

void Feed::handleFinding(Finding finding) {
  // Followers may let go of this feed.
  const Qel::Ptr<Feed> alive(this);
  retry_ = nullptr;
  if (finding.problem.empty()) noWatchLeftIs(finding.noWatchLeft);
  if (!finding.problem.empty()) {
    problemIs(Trouble::reading, finding.problem);
  } else if (finding.content) {
    takeIn(std::move(finding));
  } else if (lastPublished_) {
    problemIs(Trouble::content, url_ + ": is gone");
  } else {
    problemDel();
  }
}

void Feed::takeIn(Finding finding) {
  if (!finding.misfit.empty()) return problemIs(Trouble::content, finding.misfit);
  try {
    if (!finding.meaning) throw std::bad_alloc();
    lastPublished_ = finding.content->modified;
    problemDel();
    documentsAre(std::move(finding.meaning->documents), finding.meaning->problems);
  } catch (const std::bad_alloc&) {
    retry_ = loop_.timerIs(kRetrySeconds, [this] { lookout_->lookAgain(); });
    problemIs(Trouble::reading, url_ + ": there is no memory for what stands in it");
  }
}

void Feed::checkLater() noexcept {
  // Without this timer a file system that hangs would be served from for good, in silence.
  check_ = loop_.timerIs(kPatience, [this] { check(); });
}

void Feed::check() {
  if (lookout_->isHeldUp()) problemIs(Trouble::reading, noAnswer(url_, kPatience));
  checkLater();
}

void Feed::problemIs(Trouble trouble, const std::string& problem) {
  const bool tried = trouble == Trouble::reading && trouble_ == trouble && !problem_.empty();
  const bool known = tried || problem == problem_;
  problem_ = problem;
  trouble_ = trouble;
  if (known) return;
  trace(0, lastPublished_
               ? fmt::format("{}; still serving what was published {:.0f} s ago", problem, age())
               : problem);
}

void Feed::problemDel() {
  if (problem_.empty()) return;
  problem_.clear();
  trace(0, url_ + ": is good again");
}

void Feed::noWatchLeftIs(const std::string& reason) {
  if (std::exchange(isWatched_, reason.empty()) == isWatched_) return;
  trace(0, isWatched_ ? url_ + ": is watched again"
                      : fmt::format("{}: {}; looking each second", url_, reason));
}

double Feed::age() const {
  const double now = clock_->now();
  return std::max(0.0, now - lastPublished_.value_or(now));
}

Status Feed::status() const {
  Status status = Kavra::Feed::status();
  status.reachable = problem_.empty();
  status.problem = problem_;
  status.complete = lastPublished_ || problem_.empty();
  if (lastPublished_) {
    status.age = age();
  } else if (problem_.empty()) {
    status.reachable = false;
    status.problem = url_ + ": is not there yet";
  }
  return status;
}

}  // namespace Kavra::File
