#pragma once

#include <chrono>
#include <optional>
#include <string>

struct snmp_session;

namespace Host {

// The AgentX master that the process is a subagent of.
//
// net-snmp asks it for a session, asks every 2 s whether it is still there, and asks for a session
// again as often while there is none; each time it waits for the answer with everything else at a
// standstill. Left alone, it would wait 18 s for each of several answers in a row when the master
// does not answer. Here no standstill lasts a second (but for the look-up of a name): no question
// is repeated, what is asked in a row shares the time that there is, and between a master that is
// lost and the next attempt to reach it the event loop runs.
//
// What is registered while the master is slow is not lost: it reads it later.
//
// To be made between init_agent and init_snmp, which makes the first attempt. One a process. The
// process logs through NetSnmpLog.
class AgentxMaster {
 public:
  explicit AgentxMaster(std::string address);
  AgentxMaster(const AgentxMaster&) = delete;
  AgentxMaster& operator=(const AgentxMaster&) = delete;
  ~AgentxMaster();

  // "no AgentX master answers at ADDRESS", or nothing while there is a session.
  std::string problem() const;
  // To be called after init_snmp: logs the problem, where there is one.
  void firstAttemptIsOver();

 private:
  using Clock = std::chrono::steady_clock;

  static int beginning(int major, int minor, void* session, void* unused);
  static int opened(int major, int minor, void* session, void* unused);
  static int registered(int major, int minor, void* what, void* unused);
  static int logged(int major, int minor, void* message, void* unused);
  static int closed(int major, int minor, void* session, void* unused);
  static void inTheLoop(unsigned int alarm, void* unused);

  void waitUntilDeadline();
  void nothingIsInARow();

  static AgentxMaster* present_;

  const std::string address_;
  snmp_session* session_ = nullptr;            // while it is open
  std::optional<Clock::time_point> deadline_;  // of what is asked in a row
};

}  // namespace Host
