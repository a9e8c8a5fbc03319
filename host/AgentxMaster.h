#pragma once

#include <string>

namespace Host {

// The AgentX master that the process is a subagent of.
//
// net-snmp asks it for a session, and asks again every 15 s while there is none, each time waiting
// for the answer with everything else at a standstill. A master that does not answer would hold the
// process for more than a minute each time; here no attempt takes longer than about two seconds
// (but for the look-up of a name), so that signals are obeyed meanwhile.
//
// To be made between init_agent and init_snmp, which makes the first attempt. One a process.
class AgentxMaster {
 public:
  explicit AgentxMaster(std::string address);
  AgentxMaster(const AgentxMaster&) = delete;
  AgentxMaster& operator=(const AgentxMaster&) = delete;
  ~AgentxMaster();

  // "no AgentX master answers at ADDRESS", or nothing while there is a session.
  std::string problem() const;
  // Logs it, where there is one.
  void tellIfSilent() const;

 private:
  static int opened(int major, int minor, void* session, void* unused);
  static int closed(int major, int minor, void* session, void* unused);

  static AgentxMaster* present_;

  const std::string address_;
  bool isOpen_ = false;
};

}  // namespace Host
