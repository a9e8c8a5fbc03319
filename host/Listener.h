#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/Datagrams.h"
#include "host/HostAccess.h"
#include "host/NetSnmp.h"

namespace Host {

// An address at which the agent takes requests: a session of net-snmp's like the ones that it makes
// for its agents, but that a packet is checked through HostAccess before it is parsed, that
// datagrams are received by the batch, and that a TCP connection is ended rather than waited for.
class Listener {
 public:
  // Listens at once. `access` must outlive net-snmp, connections that were accepted included;
  // `monotonic` tells seconds, from any beginning, which never go back. Raises StartError naming
  // the address when it cannot be had.
  Listener(const std::string& address, HostAccess& access, std::function<double()> monotonic);
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener();

  static constexpr double kTurn = 0.005;  // seconds

  // Answers what was received already, and for which net-snmp will find nothing to read. When that
  // takes kTurn, the rest is left to the next round of the loop, which comes at once: others, and
  // timers, have their turn before it.
  void serveWaiting();

 private:
  const std::function<double()> monotonic_;
  std::unique_ptr<Datagrams> datagrams_;  // null where net-snmp receives by itself
  netsnmp_session* session_ = nullptr;
};

}  // namespace Host
