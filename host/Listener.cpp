#include "host/Listener.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "host/Errors.h"
#include "host/NetSnmpLog.h"

// The level at which the agent library tells of a packet that was refused; a rule may set it.
extern "C" int deny_severity;

namespace Host {
namespace {

// Why net-snmp could not listen at an address, which it does not say: `error` is what errno held
// then. Only a socket sets these; the look-up of a name, which may be no name, leaves others
// behind.
std::string reasonOf(std::string_view address, int error) {
  constexpr int kSocketErrors[] = {EACCES, EPERM,  EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT,
                                   EMFILE, ENFILE, ENOBUFS,    ENOMEM};
  const bool isPath = address.starts_with("unix") || address.starts_with('/');
  const bool isOfASocket = std::ranges::find(kSocketErrors, error) != std::end(kSocketErrors);
  return error != 0 && (isPath || isOfASocket) ? std::strerror(error) : "not an address";
}

// Whom a rule would know by the text of the address alone; nothing for any other source.
std::optional<HostAccess::Source> sourceOf(const netsnmp_transport& transport, const void* data,
                                           int length) {
  const oid* const known[] = {netsnmpUDPDomain, netsnmp_UDPIPv6Domain, netsnmp_snmpTCPDomain,
                              netsnmp_TCPIPv6Domain};
  if (std::ranges::find(known, transport.domain) == std::end(known) ||
      (transport.flags & NETSNMP_TRANSPORT_FLAG_HOSTNAME) != 0 || data == nullptr ||
      length != sizeof(netsnmp_indexed_addr_pair)) {
    return {};
  }
  const auto& remote = static_cast<const netsnmp_indexed_addr_pair*>(data)->remote_addr;
  HostAccess::Source source;
  source.family = remote.sa.sa_family;
  if (source.family == AF_INET) {
    std::memcpy(source.address.data(), &remote.sin.sin_addr, sizeof remote.sin.sin_addr);
  } else if (source.family == AF_INET6) {
    std::memcpy(source.address.data(), &remote.sin6.sin6_addr, sizeof remote.sin6.sin6_addr);
    source.scope = remote.sin6.sin6_scope_id;
  } else {
    return {};
  }
  return source;
}

void tellRefused(netsnmp_transport& transport, const void* data, int length) {
  const std::unique_ptr<char, decltype(&std::free)> source(
      transport.f_fmtaddr(&transport, data, length), &std::free);
  snmp_log(deny_severity, "Connection from %s REFUSED\n", source.get());
}

// Whether a packet may be parsed, and the line for one that may not, as netsnmp_agent_check_packet,
// which asks the host-access files each time. What it notes of those let in besides, nobody reads.
int checkPacket(netsnmp_session* session, netsnmp_transport* transport, void* data,
                int length) noexcept {
  const auto source = sourceOf(*transport, data, length);
  if (!source) return netsnmp_agent_check_packet(session, transport, data, length);
  auto& access = *static_cast<HostAccess*>(session->myvoid);
  const auto isKnown = access.known(*source);
  if (!isKnown) {
    const int isAllowed = netsnmp_agent_check_packet(session, transport, data, length);
    access.learned(*source, isAllowed != 0);
    return isAllowed;
  }
  if (*isKnown) {
    snmp_increment_statistic(STAT_SNMPINPKTS);
  } else {
    tellRefused(*transport, data, length);
  }
  return *isKnown ? 1 : 0;
}

// What a connection holds of answers that are not read yet: several of the longest.
constexpr int kUnreadOctets = 1 << 18;

// Sends an answer on a connection without waiting for whoever does not read: the thread is
// everybody's. A connection that has no room for it is ended, as net-snmp learns when it reads.
int sendAtOnce(netsnmp_transport* transport, const void* octets, int size, void** /*addresses*/,
               int* /*length*/) {
  ssize_t sent = 0;
  do {
    sent = ::send(transport->sock, octets, static_cast<std::size_t>(size),
                  MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (sent == size) return size;
  ::shutdown(transport->sock, SHUT_RDWR);
  return -1;
}

// Connections that are accepted have all of it from the transport that listens.
void waitForNoReader(netsnmp_transport& transport) {
  const bool isPlainTcp =
      transport.domain == netsnmp_snmpTCPDomain || transport.domain == netsnmp_TCPIPv6Domain;
  if (!isPlainTcp) return;
  ::setsockopt(transport.sock, SOL_SOCKET, SO_SNDBUF, &kUnreadOctets, sizeof kUnreadOctets);
  transport.f_send = sendAtOnce;
}

netsnmp_transport* transportAt(const std::string& address) {
  netsnmp_transport* transport = netsnmp_transport_open_server("snmp", address.c_str());
  if (transport != nullptr && transport->f_open != nullptr) {
    transport = transport->f_open(transport);
  }
  if (transport != nullptr) transport->flags |= NETSNMP_TRANSPORT_FLAG_OPENED;
  return transport;
}

// Takes the transport, also when it fails.
netsnmp_session* sessionOf(netsnmp_transport& transport, HostAccess& access) {
  netsnmp_session session;
  snmp_sess_init(&session);
  session.version = SNMP_DEFAULT_VERSION;
  session.callback = handle_snmp_packet;
  session.flags =
      static_cast<u_long>(netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_FLAGS));
  session.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
  session.myvoid = &access;  // each connection's session is a copy
  return snmp_add(&session, &transport, checkPacket, netsnmp_agent_check_parse);
}

// Has the loop wait for nothing in its next round.
bool roundFollowsAtOnce() {
  constexpr timeval kSoon{0, 1};  // an alarm after no time is one that has been
  const auto nothing = [](unsigned int, void*) {};
  return snmp_alarm_register_hr(kSoon, 0, nothing, nullptr) != 0;
}

}  // namespace

Listener::Listener(const std::string& address, HostAccess& access,
                   std::function<double()> monotonic)
    : monotonic_(std::move(monotonic)) {
  const NetSnmpLog::Capture capture;
  errno = 0;
  netsnmp_transport* transport = transportAt(address);
  if (transport != nullptr) {
    datagrams_ = Datagrams::of(*transport);
    waitForNoReader(*transport);
    session_ = sessionOf(*transport, access);
  }
  if (session_ == nullptr) {
    throw StartError(fmt::format("cannot listen on {}: {}", address, reasonOf(address, errno)));
  }
}

Listener::~Listener() { snmp_close(session_); }

void Listener::serveWaiting() {
  if (!datagrams_ || datagrams_->waiting() == 0) return;
  void* const session = snmp_sess_pointer(session_);
  netsnmp_large_fd_set readable;
  netsnmp_large_fd_set_init(&readable, FD_SETSIZE);
  const double end = monotonic_() + kTurn;
  for (std::size_t waiting = datagrams_->waiting(); waiting > 0; --waiting) {
    netsnmp_large_fd_setfd(snmp_sess_transport(session)->sock, &readable);
    snmp_sess_read2(session, &readable);
    if (monotonic_() >= end && roundFollowsAtOnce()) break;
  }
  netsnmp_large_fd_set_cleanup(&readable);
}

}  // namespace Host
