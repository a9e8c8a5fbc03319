#include "Kavra/File/FileObserver.h"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <string_view>
#include <thread>
#include <utility>

#include "Qel/Failure.h"

namespace Kavra::File {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

}  // namespace

FileObserver::Digest FileObserver::digestOf(const Finding& finding) {
  Digest digest;
  digest.problem = finding.problem;
  digest.isWatched = finding.noWatchLeft.empty();
  if (!finding.content) return digest;
  digest.exists = true;
  digest.size = finding.content->text.size();
  digest.hash = std::hash<std::string_view>()(finding.content->text);
  digest.modified = finding.content->modified;
  return digest;
}

std::optional<Finding> FileObserver::look() {
  // The directory first: a network file system looks the file up anew where that has changed.
  const FileFacts directory = watch_ ? options_.facts(watch_->directory()) : FileFacts();
  if (watch_ && !directory.isSameFileAs(watched_)) watch_.reset();
  const FileFacts file = options_.facts(path_);
  const bool isFollowed = watch_ || wanted_;
  const bool stirred = std::exchange(stirred_, false) || !isFollowed || file != file_;
  if (!stirred && settled_ && !isWatchedNow()) return {};
  file_ = file;
  Finding finding = read();
  const bool isGood = finding.problem.empty() && finding.unwatched.empty();
  well_ = isGood && !wanted_;
  // What changes twice within the resolution of its times looks like what has changed once: it is
  // read again by the next look.
  settled_ = isGood && !stirred;
  Digest digest = digestOf(finding);
  if (told_ == digest) return {};
  told_ = std::move(digest);
  return finding;
}

void FileObserver::forget() {
  told_.reset();
  settled_ = false;
  well_ = false;
}

Finding FileObserver::read() {
  Finding finding;
  wanted_.reset();
  const auto unwatched = Qel::failureOf([&] {
    finding.file.emplace(path_);
    // Watched before it is read, so that no change falls between the two.
    try {
      watch(*finding.file);
    } catch (const NoWatchLeft& error) {
      finding.noWatchLeft = error.what();
      wanted_ = finding.file;
    }
  });
  finding.unwatched = unwatched.value_or("");
  const auto problem = finding.file
                           ? Qel::failureOf([&] { finding.content = finding.file->readContent(); })
                           : unwatched;
  finding.problem = problem.value_or("");
  return finding;
}

void FileObserver::watch(const DatabaseFile& file) {
  if (watch_ && watch_->directory() == file.directory() && watch_->name() == file.name()) return;
  watch_.reset();
  // Of what is there before: another directory in its place is found by the next look.
  watched_ = options_.facts(file.directory());
  watch_.emplace(options_.watch(file.directory(), file.name()));
}

bool FileObserver::isWatchedNow() {
  return wanted_ && !Qel::failureOf([this] { watch(*wanted_); });
}

void FileObserver::wait(int wakeFd) {
  const std::chrono::duration<double> pause(well_ ? options_.lookEvery : options_.retryEvery);
  const auto due = steady_clock::now() + std::chrono::ceil<milliseconds>(pause);
  while (!stirred_) {
    const auto left = std::chrono::ceil<milliseconds>(due - steady_clock::now());
    if (left <= milliseconds::zero()) return;
    pollfd polled[] = {{wakeFd, POLLIN, 0}, {watch_ ? watch_->fd() : -1, POLLIN, 0}};
    // Fails where there is no memory, or no descriptor is allowed any more.
    if (::poll(polled, 2, static_cast<int>(left.count())) < 0 && errno != EINTR) {
      return std::this_thread::sleep_for(left);
    }
    if (polled[0].revents != 0) return;
    if (polled[1].revents != 0) takeEvents();
  }
}

void FileObserver::takeEvents() {
  const DirectoryWatch::Events events = watch_->takeEvents();
  if (events.loseDirectory) watch_.reset();
  if (events.loseDirectory || events.concernFile) stirred_ = true;
}

}  // namespace Kavra::File
