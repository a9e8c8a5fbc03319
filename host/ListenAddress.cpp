#include "host/ListenAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace Host {
namespace {

constexpr std::array kIpv4Transports{"udp", "tcp"};
constexpr std::array kIpv6Transports{"udp6", "udpv6", "udpipv6", "tcp6", "tcpv6", "tcpipv6"};

template <class Transports>
bool isOneOf(const Transports& transports, std::string_view transport) {
  return std::find(transports.begin(), transports.end(), transport) != transports.end();
}

// The transport and the rest. Without a known transport in front, net-snmp takes the whole as udp.
std::pair<std::string_view, std::string_view> split(std::string_view address) {
  const auto colon = address.find(':');
  if (colon != std::string_view::npos) {
    const auto transport = address.substr(0, colon);
    if (isOneOf(kIpv4Transports, transport) || isOneOf(kIpv6Transports, transport)) {
      return {transport, address.substr(colon + 1)};
    }
  }
  return {"udp", address};
}

// 127.0.0.0/8 or "localhost", with or without ":PORT".
bool isIpv4Loopback(std::string_view endpoint) {
  const std::string host(endpoint.substr(0, endpoint.find(':')));
  in_addr address{};
  return host == "localhost" ||
         (inet_pton(AF_INET, host.c_str(), &address) == 1 && ntohl(address.s_addr) >> 24 == 127);
}

// ::1, in brackets where a port follows.
bool isIpv6Loopback(std::string_view endpoint) {
  std::string host(endpoint);
  if (host.starts_with('[')) host = host.substr(1, host.find(']') - 1);
  in6_addr address{};
  return inet_pton(AF_INET6, host.c_str(), &address) == 1 && IN6_IS_ADDR_LOOPBACK(&address);
}

}  // namespace

bool isUnixSocket(std::string_view address) {
  constexpr std::string_view kTransport = "unix:";
  return address.starts_with('/') ||
         (address.size() >= kTransport.size() &&
          ::strncasecmp(address.data(), kTransport.data(), kTransport.size()) == 0);
}

bool isLoopbackAddress(std::string_view address) {
  const auto [transport, endpoint] = split(address);
  return isOneOf(kIpv6Transports, transport) ? isIpv6Loopback(endpoint) : isIpv4Loopback(endpoint);
}

}  // namespace Host
