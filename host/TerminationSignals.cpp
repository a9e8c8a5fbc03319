#include "host/TerminationSignals.h"

#include <csignal>

namespace Host {

TerminationSignals::TerminationSignals() : SignalEvents({SIGTERM, SIGINT}) {
  std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace Host
