#include "Kavra/Redis/Address.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "Kavra/Store.h"
#include "Qel/Number.h"

namespace Kavra::Redis {

namespace {

constexpr unsigned kMostPort = 65535;

bool isPort(std::string_view text) noexcept {
  const auto port = Qel::numberOf<unsigned>(text);
  return port && *port >= 1 && *port <= kMostPort;
}

struct HostAndPort {
  std::string_view host;
  std::string_view port;  // empty where none is given
};

// False when the brackets of an IPv6 address or the port are not as they should be.
bool split(std::string_view text, HostAndPort& parts) noexcept {
  std::string_view rest;
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) return false;
    parts.host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
  } else {
    const std::size_t end = text.find(':');
    parts.host = text.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : text.substr(end);
  }
  if (parts.host.empty()) return false;
  if (rest.empty()) return true;
  parts.port = rest.substr(1);
  return rest.front() == ':' && isPort(parts.port);
}

SocketAddress copyOf(const addrinfo& found) {
  SocketAddress address;
  std::memcpy(&address.storage, found.ai_addr, found.ai_addrlen);
  address.size = found.ai_addrlen;
  return address;
}

bool isLoopback(const SocketAddress& address) {
  if (address.storage.ss_family == AF_INET) {
    sockaddr_in number;
    std::memcpy(&number, &address.storage, sizeof number);
    return ntohl(number.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
  }
  sockaddr_in6 number;
  std::memcpy(&number, &address.storage, sizeof number);
  return IN6_IS_ADDR_LOOPBACK(&number.sin6_addr);
}

}  // namespace

Address Address::ofHost(const std::string& text) {
  Address address;
  address.text_ = "redis://" + text;
  HostAndPort parts;
  if (!split(text, parts)) {
    throw StoreException("'" + address.text_ +
                         "' is not the address of a Redis server: redis://HOST[:PORT], an IPv6 "
                         "address in brackets, a port from 1 to 65535");
  }
  address.host_ = parts.host;
  address.port_ = parts.port.empty() ? std::to_string(kUsualPort) : std::string(parts.port);
  address.lookup_ = std::make_shared<AddressLookup>([address] { return address.resolve(); });
  return address;
}

Address Address::ofPath(const std::string& path) {
  Address address;
  address.text_ = "redis+unix:" + path;
  address.path_ = path;
  if (!unixAddressOf(path)) {
    throw StoreException("'" + address.text_ + "': the path of a Unix socket has 1 to " +
                         std::to_string(kMostSocketPathOctets) + " octets");
  }
  return address;
}

bool Address::isNamed() const {
  if (!path_.empty()) return false;
  try {
    return resolve(AI_NUMERICHOST).empty();
  } catch (const StoreException&) {
    return true;
  }
}

bool Address::isLocal() const {
  if (!path_.empty() || host_ == "localhost") return true;
  if (isNamed()) return false;
  const auto addresses = resolve(AI_NUMERICHOST);
  return std::ranges::all_of(addresses, isLoopback);
}

std::vector<SocketAddress> Address::resolve() const {
  if (!path_.empty()) return {unixAddressOf(path_).value()};
  return resolve(0);
}

std::vector<SocketAddress> Address::resolve(int flags) const {
  addrinfo hints = {};
  hints.ai_flags = flags;
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int error = ::getaddrinfo(host_.c_str(), port_.c_str(), &hints, &list);
  if (error != 0) throw StoreException("no address for '" + host_ + "': " + gai_strerror(error));
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(list, &::freeaddrinfo);
  std::vector<SocketAddress> addresses;
  for (const addrinfo* found = list; found != nullptr; found = found->ai_next) {
    addresses.push_back(copyOf(*found));
  }
  return addresses;
}

void Address::failUnanswered() const {
  throw StoreException(
      fmt::format("no address for '{}' within {:.0f} s", host_, AddressLookup::kPatience));
}

}  // namespace Kavra::Redis
