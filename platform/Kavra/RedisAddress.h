#pragma once

#include <sys/socket.h>

#include <string>
#include <vector>

namespace Kavra {

// Where a socket can be connected to, as the kernel takes it.
struct SocketAddress {
  sockaddr_storage storage = {};
  socklen_t size = 0;

  const sockaddr* address() const noexcept { return reinterpret_cast<const sockaddr*>(&storage); }
};

// Where a Redis server listens: a host and a port, or the path of a Unix socket.
class RedisAddress {
 public:
  static constexpr unsigned kUsualPort = 6379;

  // "HOST", "HOST:PORT", "[IPV6]" or "[IPV6]:PORT". Raises StoreException for anything else.
  static RedisAddress ofHost(const std::string& text);
  // Raises StoreException for a path that is too long for a socket.
  static RedisAddress ofPath(const std::string& path);

  // As it was given, with the scheme of the state database's addresses.
  const std::string& text() const noexcept { return text_; }
  // Every address that the host has at the moment, at least one. An address in numbers costs
  // nothing; a name is looked up, for which the caller waits. Raises StoreException.
  std::vector<SocketAddress> resolve() const;

 private:
  RedisAddress() = default;
  SocketAddress unixAddress() const;

  std::string text_;
  std::string host_;  // empty for a path
  std::string port_;
  std::string path_;
};

}  // namespace Kavra
