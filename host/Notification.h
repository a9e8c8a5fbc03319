#pragma once

#include <memory>
#include <optional>

#include "Qel/Types.h"
#include "host/NetSnmp.h"
#include "host/ReloadCauses.h"

namespace Host {

// What managers are told: that the agent started (coldStart of RFC 3418), or what the causes of a
// unit have become (norvekReloadCausesChanged).
struct Notification {
  std::optional<ReloadCauses> causes;  // none: coldStart
  U32 upTime;                          // of the agent then, in hundredths of a second, modulo 2^32

  // Of notifications about the same, the later one makes the earlier one needless: -1 for the
  // start, else the unit.
  using About = std::int64_t;
  About about() const { return causes ? About{causes->unit} : -1; }
};

// With the agent's present up-time.
Notification notificationOf(std::optional<ReloadCauses> causes);

using Variables = std::unique_ptr<netsnmp_variable_list, decltype(&snmp_free_varbind)>;
using Pdu = std::unique_ptr<netsnmp_pdu, decltype(&snmp_free_pdu)>;

// snmpTrapOID.0 and all that follows it. Null where there is no memory.
Variables variablesOf(const Notification& notification);
// The message to a sink: of version 1 for SNMP_MSG_TRAP, whose agent address is `address` (network
// order), of version 2 for SNMP_MSG_TRAP2 and SNMP_MSG_INFORM. Null where there is no memory.
Pdu pduOf(const Notification& notification, int command, in_addr_t address);

}  // namespace Host
