#include "host/Datagrams.h"

#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>

namespace Host {
namespace {

// net-snmp's functions know the transport alone.
std::map<const netsnmp_transport*, Datagrams*>& datagramsOf() {
  static std::map<const netsnmp_transport*, Datagrams*> map;
  return map;
}

bool isBoundToADevice(int socket) {
  std::array<char, IFNAMSIZ> name{};
  socklen_t length = name.size();
  return ::getsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, name.data(), &length) == 0 &&
         length != 0;
}

std::optional<sockaddr_in> nameOf(int socket) {
  sockaddr_in name{};
  socklen_t length = sizeof name;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&name), &length) != 0) return {};
  if (name.sin_family != AF_INET) return {};
  return name;
}

// The address that a datagram was sent to, and the interface it came in by.
void noteTarget(msghdr& message, netsnmp_indexed_addr_pair& addresses) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != SOL_IP || part->cmsg_type != IP_PKTINFO) continue;
    in_pktinfo target{};
    std::memcpy(&target, CMSG_DATA(part), sizeof target);
    addresses.local_addr.sin.sin_addr = target.ipi_addr;
    addresses.if_index = target.ipi_ifindex;
  }
}

// Sends from the address that the request was sent to.
ssize_t answer(int socket, const void* buffer, int size, netsnmp_indexed_addr_pair& addresses) {
  iovec part{const_cast<void*>(buffer), static_cast<std::size_t>(size)};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> control{};
  msghdr message{
      &addresses.remote_addr.sin, sizeof(sockaddr_in), &part, 1, control.data(), control.size(), 0};
  cmsghdr* from = CMSG_FIRSTHDR(&message);
  from->cmsg_level = SOL_IP;
  from->cmsg_type = IP_PKTINFO;
  from->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  in_pktinfo source{};
  source.ipi_spec_dst = addresses.local_addr.sin.sin_addr;
  std::memcpy(CMSG_DATA(from), &source, sizeof source);
  ssize_t sent = 0;
  do {
    sent = ::sendmsg(socket, &message, MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  return sent;
}

}  // namespace

std::unique_ptr<Datagrams> Datagrams::of(netsnmp_transport& transport) {
  if (transport.domain != netsnmpUDPDomain || isBoundToADevice(transport.sock)) return nullptr;
  const auto name = nameOf(transport.sock);
  return name ? std::unique_ptr<Datagrams>(new Datagrams(transport, *name)) : nullptr;
}

Datagrams::Datagrams(netsnmp_transport& transport, const sockaddr_in& name)
    : transport_(transport),
      libraryReceive_(transport.f_recv),
      librarySend_(transport.f_send),
      name_(name),
      slots_(std::make_unique_for_overwrite<std::array<Slot, kMost>>()) {
  datagramsOf().emplace(&transport, this);
  transport.f_recv = &Datagrams::receive;
  transport.f_send = &Datagrams::send;
}

Datagrams::~Datagrams() { datagramsOf().erase(&transport_); }

int Datagrams::receive(netsnmp_transport* transport, void* buffer, int size, void** addresses,
                       int* length) {
  Datagrams& self = *datagramsOf().at(transport);
  // net-snmp's own tells more of what it does.
  if (self.waiting() == 0 && snmp_get_do_debugging() != 0) {
    return self.libraryReceive_(transport, buffer, size, addresses, length);
  }
  using Pair = netsnmp_indexed_addr_pair;
  auto* pair = static_cast<Pair*>(std::calloc(1, sizeof(Pair)));
  *addresses = pair;  // net-snmp frees it, whatever comes of this
  *length = pair == nullptr ? 0 : sizeof(Pair);
  return pair == nullptr ? -1 : self.take(buffer, size, *pair);
}

int Datagrams::take(void* buffer, int size, netsnmp_indexed_addr_pair& addresses) {
  if (waiting() == 0 && !receiveMore()) return -1;
  mmsghdr& message = messages_[taken_];
  const Slot& slot = (*slots_)[taken_];
  ++taken_;
  const int length = std::min(size, static_cast<int>(message.msg_len));
  std::memcpy(buffer, slot.octets.data(), static_cast<std::size_t>(length));
  addresses.remote_addr.sin = slot.source;
  addresses.local_addr.sin = name_;
  noteTarget(message.msg_hdr, addresses);
  return length;
}

bool Datagrams::receiveMore() {
  for (std::size_t i = 0; i < kMost; ++i) {
    Slot& slot = (*slots_)[i];
    parts_[i] = {slot.octets.data(), slot.octets.size()};
    messages_[i].msg_hdr = {&slot.source,        sizeof slot.source,  &parts_[i], 1,
                            slot.control.data(), slot.control.size(), 0};
  }
  int count = 0;
  do {
    count = ::recvmmsg(transport_.sock, messages_.data(), kMost, MSG_DONTWAIT, nullptr);
  } while (count < 0 && errno == EINTR);
  taken_ = 0;
  received_ = static_cast<std::size_t>(std::max(count, 0));
  return count > 0;
}

int Datagrams::send(netsnmp_transport* transport, const void* buffer, int size, void** addresses,
                    int* length) {
  Datagrams& self = *datagramsOf().at(transport);
  if (addresses != nullptr && *addresses != nullptr && length != nullptr &&
      *length == sizeof(netsnmp_indexed_addr_pair) && snmp_get_do_debugging() == 0) {
    auto& pair = *static_cast<netsnmp_indexed_addr_pair*>(*addresses);
    const ssize_t sent = answer(transport->sock, buffer, size, pair);
    // From some addresses, as that of a broadcast, nothing can be sent: net-snmp knows what then.
    if (sent >= 0 || errno != EINVAL) return static_cast<int>(sent);
  }
  return self.librarySend_(transport, buffer, size, addresses, length);
}

}  // namespace Host
