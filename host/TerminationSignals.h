#pragma once

#include <csignal>

#include "host/SignalEvents.h"

namespace Host {

// SIGTERM and SIGINT as events of the loop, and SIGPIPE ignored.
class TerminationSignals : public SignalEvents {
 public:
  // Raises std::system_error when the kernel refuses.
  TerminationSignals();
};

// While it lives, SIGTERM and SIGINT end the process at once, with 0: for what may take long before
// the loop runs, and leaves nothing to be undone.
class EndingAtOnce {
 public:
  EndingAtOnce() noexcept;
  EndingAtOnce(const EndingAtOnce&) = delete;
  EndingAtOnce& operator=(const EndingAtOnce&) = delete;
  ~EndingAtOnce();

 private:
  sigset_t before_{};
};

}  // namespace Host
