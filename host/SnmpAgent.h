#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/AgentxMaster.h"
#include "host/HostAccess.h"
#include "host/Listener.h"
#include "host/Options.h"
#include "host/SinkDirectives.h"
#include "host/SnmpConfiguration.h"
#include "host/SystemGroup.h"

namespace Host {

// The SNMP agent of the process: net-snmp's libraries from init_agent to shutdown_agent.
//
// It reads no configuration but the one named, keeps no state but the count of its starts, loads no
// MIB and refuses every SET. net-snmp does not start a second time without leaks: one a process.
class SnmpAgent {
 public:
  // Starts the agent; `description` is what sysDescr says. A subagent keeps asking its
  // master, and logs that it does. Raises StartError for a configuration that cannot be obeyed.
  SnmpAgent(const Options& options, const std::string& description);
  SnmpAgent(const SnmpAgent&) = delete;
  SnmpAgent& operator=(const SnmpAgent&) = delete;
  // Whatever was registered with net-snmp, descriptors and timers included, has to be gone.
  ~SnmpAgent();

  // Why no manager reaches it, or nothing: a subagent's master may be silent.
  std::string problem() const { return master_ ? master_->problem() : std::string(); }

  // Takes requests at the addresses, from when all plug-ins are in place. Raises StartError naming
  // the address that cannot be had.
  void listenAt(const std::vector<std::string>& addresses);
  // Answers what its listeners have received already, for a while. Nothing else would: each round
  // of the event loop ends with it.
  void serveWaiting();

  // Reads the configuration file again, and lets in whom it names; the system group's texts are its
  // as well. Raises StartError where the file does not hold: by then the old access is gone. A
  // subagent has none.
  void readConfigurationAgain();
  // Whom the configuration that was read last wants to be notified. Nobody of a subagent's.
  const SinkDirectives& sinks() const { return sinks_; }

 private:
  struct Library {
    explicit Library(const Options& options);
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library();
  };

  void startMaster(const Options& options);

  HostAccess hostAccess_;
  const Library library_;
  SinkDirectives sinks_;
  std::unique_ptr<SystemGroup> systemGroup_;
  std::unique_ptr<SnmpConfiguration> configuration_;
  std::unique_ptr<AgentxMaster> master_;  // of a subagent
  std::vector<std::unique_ptr<Listener>> listeners_;
};

}  // namespace Host
