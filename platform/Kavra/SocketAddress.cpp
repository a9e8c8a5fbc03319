#include "Kavra/SocketAddress.h"

#include <cstring>

namespace Kavra {

std::optional<SocketAddress> unixAddressOf(std::string_view path) noexcept {
  if (path.empty() || path.size() > kMostSocketPathOctets) return {};
  if (path.find('\0') != std::string_view::npos) return {};
  sockaddr_un whole = {};
  whole.sun_family = AF_UNIX;
  path.copy(whole.sun_path, path.size());
  SocketAddress address;
  std::memcpy(&address.storage, &whole, sizeof whole);
  address.size = sizeof whole;
  return address;
}

}  // namespace Kavra
