#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Qel/EventLoop.h"
#include "host/Options.h"
#include "host/SnmpAgent.h"
#include "host/StateDatabase.h"
#include "host/TraceLevels.h"
#include "host/Trial.h"

namespace Host {

// What the process reads again while it runs: the levels of --trace-file, the credentials of
// --db-auth and --peer-db-auth, and the access of --config. Each on its own: what does not hold
// stays as it was, and one line says so.
class Reload {
 public:
  // All must outlive the object. `accessWasRead` is called after each time that the access was read
  // again, or lost.
  Reload(const Options& options, TraceLevels& traces, const StateDatabase& database,
         SnmpAgent& agent, Qel::EventLoop& loop, std::function<void()> accessWasRead);

  // Begins; access is tried out apart, and taken in later, from the loop. What is asked for
  // meanwhile is done after that, once. Never raises.
  void begin();

 private:
  void readTraces();
  void readCredentials();
  void tryAccess();
  void handleAccess(const std::string& problem);
  void end();

  const Options& options_;
  TraceLevels& traces_;
  const StateDatabase& database_;
  SnmpAgent& agent_;
  Qel::EventLoop& loop_;
  const std::function<void()> accessWasRead_;
  std::unique_ptr<Trial> trial_;  // while one is under way
  bool again_ = false;
};

}  // namespace Host
