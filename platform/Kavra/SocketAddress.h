#pragma once

#include <sys/socket.h>

namespace Kavra {

// Where a socket can be connected to, as the kernel takes it.
struct SocketAddress {
  sockaddr_storage storage = {};
  socklen_t size = 0;

  const sockaddr* address() const noexcept { return reinterpret_cast<const sockaddr*>(&storage); }
};

}  // namespace Kavra
