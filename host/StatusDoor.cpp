#include "host/StatusDoor.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "Kavra/SocketAddress.h"
#include "Qel/Failure.h"
#include "host/Errors.h"
#include "host/Log.h"
#include "host/StatusText.h"

namespace Host {
namespace {

constexpr int kBacklog = 8;
constexpr int kSendBuffer = 4 * int{kMostStatusOctets};  // what the kernel adds included
constexpr double kPause = 1.0;                           // where it has no descriptor left
constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP;

// Which file stands there.
std::pair<dev_t, ino_t> fileAt(const std::string& path) {
  struct stat facts = {};
  if (::lstat(path.c_str(), &facts) != 0) return {};
  return {facts.st_dev, facts.st_ino};
}

[[noreturn]] void fail(const std::string& path, const std::string& problem) {
  throw StartError(fmt::format("status socket {}: {}", path, problem));
}

Kavra::FileDescriptor newSocket() {
  return Kavra::FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

int bindTo(const Kavra::FileDescriptor& socket, const Kavra::SocketAddress& address) {
  return ::bind(socket.fd(), address.address(), address.size);
}

// Takes away the socket of a process that has ended; anything else stands in the way.
void removeLeftOver(const std::string& path, const Kavra::SocketAddress& address) {
  struct stat facts = {};
  if (::lstat(path.c_str(), &facts) != 0) return;
  if (!S_ISSOCK(facts.st_mode)) fail(path, "something else stands there");
  const auto probe = newSocket();
  if (::connect(probe.fd(), address.address(), address.size) == 0 || errno != ECONNREFUSED) {
    fail(path, "another process listens there");
  }
  ::unlink(path.c_str());
}

Kavra::FileDescriptor listenAt(const std::string& path) {
  const auto address = Kavra::unixAddressOf(path);
  if (!address) fail(path, "not the path of a socket: empty, or too long");
  auto socket = newSocket();
  // Nobody else from the first moment on, whatever the umask is; the group when all is in place.
  if (!socket || ::fchmod(socket.fd(), S_IRUSR | S_IWUSR) != 0) fail(path, std::strerror(errno));
  if (bindTo(socket, *address) != 0) {
    if (errno != EADDRINUSE) fail(path, std::strerror(errno));
    removeLeftOver(path, *address);
    if (bindTo(socket, *address) != 0) fail(path, std::strerror(errno));
  }
  if (::listen(socket.fd(), kBacklog) != 0 || ::chmod(path.c_str(), kMode) != 0) {
    fail(path, std::strerror(errno));
  }
  return socket;
}

}  // namespace

StatusDoor::StatusDoor(const std::string& path, Qel::EventLoop& loop, Text text)
    : path_(path),
      loop_(loop),
      text_(std::move(text)),
      socket_(listenAt(path)),
      file_(fileAt(path)) {
  if (const auto failure = Qel::failureOf([this] { listen(); })) fail(path, *failure);
}

StatusDoor::~StatusDoor() {
  watch_ = nullptr;
  // Somebody may have taken it away, and another process may have put its own there.
  if (fileAt(path_) == file_) ::unlink(path_.c_str());
}

void StatusDoor::listen() {
  watch_ = loop_.readableIs(socket_.fd(), [this] { answerOne(); });
}

void StatusDoor::pause() {
  watch_ = loop_.timerIs(kPause, [this] {
    // The loop may have no room for a descriptor at the moment, either.
    if (Qel::failureOf([this] { listen(); })) pause();
  });
}

void StatusDoor::answerOne() {
  const Kavra::FileDescriptor reader(
      ::accept4(socket_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!reader) {
    // Who waits keeps the socket readable: without a pause, the loop would do nothing else.
    if (errno != EAGAIN) pause();
    return;
  }
  const std::string text = text_();
  ::setsockopt(reader.fd(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  [[maybe_unused]] const auto sent =
      ::send(reader.fd(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

std::unique_ptr<StatusDoor> statusDoorOf(const Options& options, Qel::EventLoop& loop,
                                         StatusDoor::Text text) {
  if (options.statusSocket) {
    return std::make_unique<StatusDoor>(*options.statusSocket, loop, std::move(text));
  }
  if (::access(kStatusFolder, W_OK | X_OK) != 0) return nullptr;
  const std::string path = fmt::format("{}cell-{}.sock", kStatusFolder, options.cellId);
  try {
    return std::make_unique<StatusDoor>(path, loop, std::move(text));
  } catch (const StartError& error) {
    logLine(error.what(), LOG_WARNING);
    return nullptr;
  }
}

}  // namespace Host
