#pragma once

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
  // Listens at once. `access` must outlive net-snmp, connections that were accepted included.
  // Raises StartError naming the address when it cannot be had.
  Listener(const std::string& address, HostAccess& access);
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener();

  // Answers what was received already, and for which net-snmp will find nothing to read.
  void serveWaiting();

 private:
  std::unique_ptr<Datagrams> datagrams_;  // null where net-snmp receives by itself
  netsnmp_session* session_ = nullptr;
};

}  // namespace Host
