#include "host/SnmpAgent.h"

#include <fmt/format.h>

#include <cstdlib>
#include <utility>

#include "host/Errors.h"
#include "host/MonotonicSeconds.h"
#include "host/NetSnmp.h"
#include "host/NetSnmpLog.h"
#include "host/SnmpEngine.h"
#include "host/TerminationSignals.h"

namespace Host {
namespace {

constexpr auto kName = "norvek-snmpd";
// What fits into a datagram of UDP over IPv4.
constexpr int kMostDatagramOctets = 65507;

// MIB files are for those who print names; the agent answers in numbers.
void loadNoMibs() {
  ::setenv("MIBS", "", 1);
  ::unsetenv("MIBDIRS");
  ::unsetenv("MIBFILES");
  netsnmp_set_mib_directory("");
}

// The directories are where none can be: net-snmp's certificate store ignores the switches.
void keepNoState() {
  for (const int flag :
       {NETSNMP_DS_LIB_DONT_PERSIST_STATE, NETSNMP_DS_LIB_DISABLE_CONFIG_LOAD,
        NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE}) {
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, flag, 1);
  }
  for (const auto set : {set_persistent_directory, set_configuration_directory}) set("/dev/null");
}

// The modules that init_agent would start beside ours: a listener on port 199, and a client of the
// agent's own tables.
void leaveOutModules() {
  static bool leftOut = false;  // the list is net-snmp's and outlives its shutdown
  if (!std::exchange(leftOut, true)) add_to_init_list(std::string("-smux,iquery").data());
}

void roleIs(const Options& options) {
  const bool subagent = options.agentxAddress.has_value();
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, subagent ? 1 : 0);
  if (subagent) {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET,
                          options.agentxAddress->c_str());
  }
}

// Reads the configuration, which may be long and name hosts; a subagent asks its master as well.
void readFiles() {
  const EndingAtOnce ending;
  init_snmp(kName);
}

}  // namespace

SnmpAgent::Library::Library(const Options& options) {
  NetSnmpLog::start();
  loadNoMibs();
  keepNoState();
  leaveOutModules();
  roleIs(options);
  // Alarms are run by the event loop, which is not there yet.
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
  // Access is by configuration; a line for each request would drown the log.
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS,
                         1);
  if (init_agent(kName) != 0) throw StartError("net-snmp's agent did not start");
}

SnmpAgent::Library::~Library() {
  // It takes its log down first, and what it would debug afterwards would wait for a reader.
  snmp_set_do_debugging(0);
  snmp_shutdown(kName);
  shutdown_master_agent();
  shutdown_agent();
}

SnmpAgent::SnmpAgent(const Options& options, const std::string& description)
    : hostAccess_({"/etc/hosts.allow", "/etc/hosts.deny"}, monotonicSeconds), library_(options) {
  const bool subagent = options.agentxAddress.has_value();
  if (!subagent) systemGroup_ = std::make_unique<SystemGroup>(description);
  configuration_ = std::make_unique<SnmpConfiguration>(options.configurationFile);
  if (subagent) {
    master_ = std::make_unique<AgentxMaster>(*options.agentxAddress);
    readFiles();
    configuration_->check();
    master_->firstAttemptIsOver();
  } else {
    startMaster(options);
  }
}

SnmpAgent::~SnmpAgent() = default;

void SnmpAgent::startMaster(const Options& options) {
  const SnmpEngine engine(options);
  // A longer answer could not be sent: net-snmp cuts it to as many rows as fit, or says tooBig.
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_MSG_SEND_MAX, kMostDatagramOctets);
  configuration_->read(readFiles);
  // The addresses come later, one by one.
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, "none");
  if (init_master_agent() != 0) throw StartError("net-snmp's agent did not start");
  engine.start();
  systemGroup_->registerScalars();
}

void SnmpAgent::readConfigurationAgain() { configuration_->readAgain(); }

void SnmpAgent::listenAt(const std::vector<std::string>& addresses) {
  for (const std::string& address : addresses) {
    listeners_.push_back(std::make_unique<Listener>(address, hostAccess_, monotonicSeconds));
  }
}

void SnmpAgent::serveWaiting() {
  for (const auto& listener : listeners_) listener->serveWaiting();
}

}  // namespace Host
