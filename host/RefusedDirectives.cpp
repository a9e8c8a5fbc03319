#include "host/RefusedDirectives.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "host/NetSnmp.h"

namespace Host {
namespace {

struct RefusedDirective {
  const char* section;  // null for the agent's own
  const char* name;     // in any case
  const char* why;
};

constexpr const char* kLibrary = "snmp";
constexpr const char* kNoSubagents = "this agent takes no subagents";
constexpr const char* kNoPerl = "this agent runs no Perl";
constexpr const char* kNoCertificates = "this agent reads no certificates";
constexpr const char* kNoMibFiles = "this agent reads no MIB files";
constexpr const char* kNoPersistence = "net-snmp keeps nothing here";
constexpr const char* kNoStatistics = "nothing shows these statistics";
constexpr const char* kNoRefusalsTold = "no manager is notified of a request that is refused";
constexpr const char* kOwnEngine = "the engine id is this agent's own, or given by --engine-id";
constexpr const char* kOwnUser = "the process stays the user and group that started it";

constexpr RefusedDirective kRefused[] = {
    {nullptr, "agentaddress", "addresses are given with --listen"},
    {nullptr, "agentuser", kOwnUser},
    {nullptr, "agentgroup", kOwnUser},
    {nullptr, "quit", "the process serves until a signal ends it"},
    {nullptr, "leave_pidfile", "this agent writes no such file"},
    {nullptr, "master", kNoSubagents},
    {nullptr, "agentxsocket", "the master's address is given with --agentx"},
    {nullptr, "agentxperms", kNoSubagents},
    {nullptr, "agentxTimeout", kNoSubagents},
    {nullptr, "agentxRetries", kNoSubagents},
    {nullptr, "perl", kNoPerl},
    {nullptr, "perlInitFile", kNoPerl},
    {nullptr, "disablePerl", kNoPerl},
    {nullptr, "pduStatsMax", kNoStatistics},
    {nullptr, "pduStatsThreshold", kNoStatistics},
    {nullptr, "injectHandler", "the tables come later and stay as they are"},
    {nullptr, "certSecName", kNoCertificates},
    {nullptr, "snmpTlstmParams", kNoCertificates},
    {nullptr, "snmpTlstmAddr", kNoCertificates},
    {nullptr, "engineBoots", "this agent counts its starts itself"},
    {nullptr, "authtrapenable", kNoRefusalsTold},
    {nullptr, "pauthtrapenable", kNoRefusalsTold},
    {nullptr, "vacmView", kNoPersistence},
    {nullptr, "vacmGroup", kNoPersistence},
    {nullptr, "vacmAccess", kNoPersistence},
    {nullptr, "usmUser", kNoPersistence},
    {nullptr, "oldEngineID", kOwnEngine},
    {nullptr, "engineIDType", kOwnEngine},
    {nullptr, "engineIDNic", kOwnEngine},
    {kLibrary, "clientaddr", "a sink of notifications has its own -s ADDRESS"},
    {kLibrary, "persistentDir", kNoPersistence},
    {kLibrary, "noPersistentLoad", kNoPersistence},
    {kLibrary, "noPersistentSave", kNoPersistence},
    {kLibrary, "mibs", kNoMibFiles},
    {kLibrary, "mibdirs", kNoMibFiles},
    {kLibrary, "mibfile", kNoMibFiles},
    {kLibrary, "noTokenWarnings", "what is not known ends the start"},
};

// net-snmp hands over the name as it was typed.
void refuse(const char* typed, char* /*value*/) {
  const auto* directive = std::ranges::find_if(kRefused, [typed](const RefusedDirective& refused) {
    return ::strcasecmp(refused.name, typed) == 0;
  });
  if (directive != std::end(kRefused)) {
    config_perror(fmt::format("{}: {}", typed, directive->why).c_str());
  }
}

}  // namespace

void refuseWhatIsNotObeyed() {
  const char* own = netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE);
  for (const auto& [section, name, why] : kRefused) {
    // Of two registrations of a name, the later one stands.
    register_config_handler(section != nullptr ? section : own, name, &refuse, nullptr, nullptr);
  }
}

}  // namespace Host
