#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <memory>

#include "host/NetSnmp.h"

namespace Host {

// Receives and sends for a transport of net-snmp's, UDP over IPv4, in the place of its own
// functions: several datagrams with one system call, and without asking at each for what stays the
// same, the socket's name and device.
//
// net-snmp takes one datagram whenever the socket can be read. The others wait here, where no
// select() sees them: whoever runs the loop has them taken before it waits again.
class Datagrams {
 public:
  static constexpr std::size_t kMost = 16;  // at once

  // Null for a transport of another kind, or bound to a device: net-snmp's own functions stay. The
  // transport must live as long as net-snmp uses it.
  static std::unique_ptr<Datagrams> of(netsnmp_transport& transport);
  Datagrams(const Datagrams&) = delete;
  Datagrams& operator=(const Datagrams&) = delete;
  ~Datagrams();

  // How many were received and not taken yet.
  std::size_t waiting() const { return received_ - taken_; }

 private:
  using Receive = decltype(netsnmp_transport::f_recv);
  using Send = decltype(netsnmp_transport::f_send);
  struct Slot {
    std::array<char, SNMP_MAX_RCV_MSG_SIZE> octets;
    sockaddr_in source;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> control;
  };

  Datagrams(netsnmp_transport& transport, const sockaddr_in& name);

  static int receive(netsnmp_transport* transport, void* buffer, int size, void** addresses,
                     int* length);
  static int send(netsnmp_transport* transport, const void* buffer, int size, void** addresses,
                  int* length);
  int take(void* buffer, int size, netsnmp_indexed_addr_pair& addresses);
  bool receiveMore();

  netsnmp_transport& transport_;
  const Receive libraryReceive_;
  const Send librarySend_;
  const sockaddr_in name_;
  const std::unique_ptr<std::array<Slot, kMost>> slots_;
  std::array<iovec, kMost> parts_{};
  std::array<mmsghdr, kMost> messages_{};
  std::size_t received_ = 0;
  std::size_t taken_ = 0;
};

}  // namespace Host
