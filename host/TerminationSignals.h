#pragma once

#include "host/SignalEvents.h"

namespace Host {

// SIGTERM and SIGINT as events of the loop, and SIGPIPE ignored.
class TerminationSignals : public SignalEvents {
 public:
  // Raises std::system_error when the kernel refuses.
  TerminationSignals();
};

}  // namespace Host
