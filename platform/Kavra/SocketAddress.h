#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <optional>
#include <string_view>

namespace Kavra {

// Where a socket can be connected to, as the kernel takes it.
struct SocketAddress {
  sockaddr_storage storage = {};
  socklen_t size = 0;

  const sockaddr* address() const noexcept { return reinterpret_cast<const sockaddr*>(&storage); }
};

// What the path of a Unix socket has at most, in octets.
inline constexpr std::size_t kMostSocketPathOctets = sizeof(sockaddr_un::sun_path) - 1;

// The address of the Unix socket at `path`; nothing when that is empty, too long or holds a NUL,
// where the kernel would see another path.
std::optional<SocketAddress> unixAddressOf(std::string_view path) noexcept;

}  // namespace Kavra
