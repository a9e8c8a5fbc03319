#include "Kavra/File/DirectoryWatch.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <system_error>

namespace Kavra::File {

namespace {

// Not each write to the file: what is written bit by bit is looked at when the writer closes it.
constexpr std::uint32_t kFileEvents =
    IN_CLOSE_WRITE | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr std::uint32_t kDirectoryEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

struct Want {
  int error;
  const char* text;
};
constexpr Want kWants[] = {
    {EMFILE, "this user has no inotify instance left (fs.inotify.max_user_instances)"},
    {ENOSPC, "this user has no inotify watch left (fs.inotify.max_user_watches)"},
    {ENFILE, "no file can be opened any more on this computer (fs.file-max)"},
    {ENOMEM, "there is no memory for it"},
};

[[noreturn]] void throwUnwatched(const std::string& directory, int error) {
  const auto* const want = std::ranges::find(kWants, error, &Want::error);
  if (want != std::end(kWants)) {
    throw NoWatchLeft("directory " + directory + " cannot be watched: " + want->text);
  }
  throw StoreException("directory " + directory +
                       " cannot be followed: " + std::generic_category().message(error));
}

}  // namespace

NoWatchLeft::~NoWatchLeft() = default;

DirectoryWatch::DirectoryWatch(const std::string& directory, const std::string& name)
    : directory_(directory), name_(name), inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  constexpr std::uint32_t kEvents = kFileEvents | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  if (inotify_ && ::inotify_add_watch(inotify_.fd(), directory_.c_str(), kEvents) >= 0) return;
  throwUnwatched(directory_, errno);
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
