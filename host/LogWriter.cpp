#include "host/LogWriter.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace Host {
namespace {

// A pipe that polls writable takes that much without blocking, and in one piece.
constexpr std::size_t kPiece = PIPE_BUF;

bool takesMore(int fd) {
  pollfd state{fd, POLLOUT, 0};
  return ::poll(&state, 1, 0) == 1;
}

}  // namespace

bool LogWriter::write(std::string_view line) {
  lookAtDescriptor();
  if (!finish()) return false;
  const std::size_t taken = put(line);
  if (taken == 0) return false;
  rest_ = line.substr(taken);
  return true;
}

bool LogWriter::finish() {
  if (!rest_.empty()) rest_.erase(0, put(rest_));
  return rest_.empty();
}

void LogWriter::lookAtDescriptor() {
  struct stat facts {};
  if (::fstat(fd_, &facts) != 0) return;
  if (facts.st_dev == device_ && facts.st_ino == inode_) return;
  device_ = facts.st_dev;
  inode_ = facts.st_ino;
  rest_.clear();
  own_ = {};
  kind_ = S_ISSOCK(facts.st_mode)                    ? Kind::socket
          : S_ISFIFO(facts.st_mode) || ::isatty(fd_) ? Kind::pipeOrTerminal
                                                     : Kind::file;
  if (kind_ != Kind::pipeOrTerminal) return;
  // To set O_NONBLOCK on fd_ would set it for all who share it. Somebody else's pipe may not be
  // opened; then another one who writes to it between poll and write can make this one wait.
  own_ = Kavra::FileDescriptor(::open(fmt::format("/proc/self/fd/{}", fd_).c_str(),
                                      O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
}

std::size_t LogWriter::put(std::string_view text) const {
  if (kind_ != Kind::socket) return putInPieces(text);
  const auto taken = ::send(fd_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  return static_cast<std::size_t>(std::max<ssize_t>(taken, 0));
}

std::size_t LogWriter::putInPieces(std::string_view text) const {
  const int fd = own_ ? own_.fd() : fd_;
  std::size_t taken = 0;
  while (taken < text.size() && takesMore(fd)) {
    const auto piece = text.substr(taken, kPiece);
    const auto count = ::write(fd, piece.data(), piece.size());
    if (count <= 0) break;
    taken += static_cast<std::size_t>(count);
  }
  return taken;
}

}  // namespace Host
