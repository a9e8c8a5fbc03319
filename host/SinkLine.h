#pragma once

#include <netinet/in.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/NetSnmp.h"

namespace Host {

// What a line of the configuration says of a sink of notifications.
struct SinkLine {
  std::string target;  // as it was typed; for messages
  bool isIpv6 = false;
  std::string host;  // a name or a number, without brackets
  std::string port;
  std::string source;  // a number to send from, or empty

  long version = SNMP_VERSION_2c;
  int command = SNMP_MSG_TRAP2;  // SNMP_MSG_TRAP (version 1 alone), SNMP_MSG_TRAP2, SNMP_MSG_INFORM
  std::string community;         // of versions 1 and 2c
  std::optional<in_addr_t>
      version1Address;            // what traps of version 1 name as the agent's, if given
  std::optional<double> timeout;  // seconds until an inform is repeated; net-snmp's default without
  std::optional<int> retries;     // how often; the same

  // Of version 3; what is empty or absent has the default of net-snmp's configuration.
  std::string user;
  std::optional<int> level;
  std::string context;
  std::string engineId;  // the authority's, where it is not asked or the own one
  std::string contextEngineId;
  std::vector<oid> authProtocol;
  std::vector<oid> privProtocol;
  std::string authKey;  // of the passphrase, before it is localized
  std::string privKey;

  bool isInform() const { return command == SNMP_MSG_INFORM; }
  friend bool operator==(const SinkLine& a, const SinkLine& b) = default;
};

// The sink of "trapsink", "trap2sink" or "informsink" (the version and command are those), with
// `community` where the line gives none; or of "trapsess". As net-snmp takes them, but for what
// cannot be obeyed: a transport other than UDP, options that name a target of SNMP-TARGET-MIB, and
// those of a command that have nothing to do with notifications. Raise std::invalid_argument.
SinkLine sinkOfLine(std::string_view line, long version, int command, const std::string& community);
SinkLine sinkOfSession(std::string_view line);

}  // namespace Host
