#include "Kavra/File/DirectoryWatch.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

#include "Kavra/Store.h"
#include "Qel/Exception.h"

namespace Kavra::File {

namespace {

constexpr double kRetrySeconds = 1.0;
// Not each write to the file: what is written bit by bit is looked at when the writer closes it.
constexpr std::uint32_t kFileEvents =
    IN_CLOSE_WRITE | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr std::uint32_t kDirectoryEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

}  // namespace

DirectoryWatch::DirectoryWatch(Qel::EventLoop& loop, const std::string& directory,
                               const std::string& name, std::function<void()> call)
    : loop_(loop), directory_(directory), name_(name), call_(std::move(call)) {
  if (watch()) return;
  throw StoreException("directory " + directory_ +
                       " cannot be followed: " + std::generic_category().message(errno));
}

DirectoryWatch::~DirectoryWatch() = default;

bool DirectoryWatch::watch() {
  // The loop lets go of a descriptor before it is closed.
  readable_ = nullptr;
  inotify_ = FileDescriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!inotify_) return false;
  const std::uint32_t events = kFileEvents | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  if (::inotify_add_watch(inotify_.fd(), directory_.c_str(), events) < 0) return false;
  try {
    readable_ = loop_.readableIs(inotify_.fd(), [this] { handleReadable(); });
  } catch (const Qel::RangeException&) {
    errno = EMFILE;
    return false;
  }
  return true;
}

bool DirectoryWatch::concernsFile(std::uint32_t event, std::string_view name) const {
  // After an overflow nobody knows what was missed.
  if ((event & IN_Q_OVERFLOW) != 0) return true;
  if (name != name_) return false;
  // A link is complete when it is made; a file that was opened for writing is told of when it is
  // closed.
  struct stat facts {};
  const bool isEmpty =
      ::stat((directory_ + "/" + name_).c_str(), &facts) != 0 || facts.st_size == 0;
  return (event & IN_CREATE) == 0 || !isEmpty;
}

void DirectoryWatch::retryLater() {
  retry_ = loop_.timerIs(kRetrySeconds, [this] { retry(); });
}

void DirectoryWatch::retry() {
  const Qel::Ptr<DirectoryWatch> alive(this);
  if (!watch()) {
    retryLater();
    return;
  }
  call_();
}

void DirectoryWatch::handleReadable() {
  const Qel::Ptr<DirectoryWatch> alive(this);
  const Events events = takeEvents();
  if (events.loseDirectory && !watch()) retryLater();
  if (events.loseDirectory || events.concernFile) call_();
}

DirectoryWatch::Events DirectoryWatch::takeEvents() {
  Events events;
  alignas(inotify_event) std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t count = ::read(inotify_.fd(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return events;
    for (std::size_t at = 0; at < static_cast<std::size_t>(count);) {
      inotify_event event{};
      std::memcpy(&event, buffer.data() + at, sizeof event);
      // The name is padded with NULs.
      const std::string_view name =
          event.len == 0 ? std::string_view() : buffer.data() + at + sizeof event;
      if (concernsFile(event.mask, name)) events.concernFile = true;
      if ((event.mask & kDirectoryEvents) != 0) events.loseDirectory = true;
      at += sizeof event + event.len;
    }
  }
}

}  // namespace Kavra::File
