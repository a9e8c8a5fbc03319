#pragma once

#include <csignal>

#include "Qel/PollEventLoop.h"

namespace Tools {

// Ends a loop on SIGINT and SIGTERM while it lives. One at a time.
class EndOnSignal {
 public:
  explicit EndOnSignal(Qel::PollEventLoop& loop);
  EndOnSignal(const EndOnSignal&) = delete;
  EndOnSignal& operator=(const EndOnSignal&) = delete;
  ~EndOnSignal();

 private:
  struct sigaction interrupt_ {};
  struct sigaction terminate_ {};
};

}  // namespace Tools
