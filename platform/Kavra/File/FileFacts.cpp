#include "Kavra/File/FileFacts.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace Kavra::File {

namespace {

std::int64_t nanoseconds(const struct statx_timestamp& time) {
  constexpr std::int64_t kPerSecond = 1'000'000'000;
  return time.tv_sec * kPerSecond + time.tv_nsec;
}

}  // namespace

FileFacts factsOf(const std::string& path) {
  constexpr unsigned kWanted = STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME;
  struct statx found = {};
  FileFacts facts;
  if (::statx(AT_FDCWD, path.c_str(), AT_STATX_FORCE_SYNC, kWanted, &found) != 0) {
    facts.error = errno;
    return facts;
  }
  facts.device = (std::uint64_t{found.stx_dev_major} << 32U) | found.stx_dev_minor;
  facts.inode = found.stx_ino;
  facts.size = found.stx_size;
  facts.modified = nanoseconds(found.stx_mtime);
  facts.changed = nanoseconds(found.stx_ctime);
  return facts;
}

}  // namespace Kavra::File
