#include "Kavra/Redis/Connection.h"

#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Kavra/Store.h"

namespace Kavra::Redis {

namespace {

constexpr std::size_t kPiece = 65536;

[[noreturn]] void failWith(const char* what, int error) {
  throw StoreException(std::string(what) + ": " + std::generic_category().message(error));
}

FileDescriptor connectedSocket(const SocketAddress& address) {
  FileDescriptor socket(
      ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket) failWith("no socket", errno);
  if (address.storage.ss_family != AF_UNIX) {
    const int on = 1;
    // Without it requests only wait longer.
    (void)::setsockopt(socket.fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  }
  if (::connect(socket.fd(), address.address(), address.size) != 0 && errno != EINPROGRESS) {
    failWith("cannot connect", errno);
  }
  return socket;
}

// Whether the error says no more than that the socket is not ready.
bool isForNow(int error) noexcept {
  return error == EAGAIN || error == EINTR || error == ENOTCONN || error == EINPROGRESS;
}

}  // namespace

Connection::Connection(const SocketAddress& address) : socket_(connectedSocket(address)) {}

void Connection::needConnected() {
  int error = 0;
  socklen_t size = sizeof(error);
  if (::getsockopt(fd(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  if (error != 0) failWith("cannot connect", error);
}

void Connection::commandsAre(const std::vector<Command>& commands) {
  for (const Command& command : commands) commandIs(command);
  reader_.mostPartsIs(commands.size());
}

void Connection::commandIs(const Command& command) {
  const auto addLine = [this](std::string_view text) { unsent_.append(text).append("\r\n"); };
  const auto addSize = [&](char kind, std::size_t size) {
    unsent_.push_back(kind);
    const fmt::format_int digits(size);
    addLine({digits.data(), digits.size()});
  };
  addSize('*', command.size());
  for (const std::string& argument : command) {
    addSize('$', argument.size());
    addLine(argument);
  }
}

bool Connection::send() {
  while (sent_ < unsent_.size()) {
    const ssize_t sent = ::send(fd(), unsent_.data() + sent_, unsent_.size() - sent_, MSG_NOSIGNAL);
    if (sent < 0) {
      if (isForNow(errno)) return true;
      failWith("cannot send", errno);
    }
    sent_ += static_cast<std::size_t>(sent);
    octets_ += static_cast<std::size_t>(sent);
  }
  unsent_.clear();
  sent_ = 0;
  return false;
}

bool Connection::receive() {
  std::array<char, kPiece> piece;
  const ssize_t size = ::recv(fd(), piece.data(), piece.size(), 0);
  if (size == 0) throw StoreException("the server closed the connection");
  if (size < 0 && isForNow(errno)) return false;
  if (size < 0) failWith("cannot receive", errno);
  octets_ += static_cast<std::size_t>(size);
  reader_.feed({piece.data(), static_cast<std::size_t>(size)});
  return true;
}

}  // namespace Kavra::Redis
