#pragma once

#include "MiscSnmpAgent/ModuleTrace.h"

namespace MiscSnmp::Agent {

// Traces a line of the ResetHistorySm handler at `place`: the signature text up to the name, then
// `pieces`, of which the first goes on with the parameters.
template <class... Pieces>
void traceHandler(const TracePlace& place, const Pieces&... pieces) {
  if (auto trace = agentTrace(place)) {
    ((*trace << "void MiscSnmp::Agent::ResetHistorySm::" << place.function) << ... << pieces);
  }
}

}  // namespace MiscSnmp::Agent
