#pragma once

#include <optional>

#include "Qel/Trace.h"

namespace MiscSnmp::Agent {

// The module's access to the trace facility "MiscSnmp"; made on first use, lives until unload.
Qel::TraceHandle& _defaultTraceHandle();

// A trace line of the handler `function`, or nothing when the level is off. Records carry the name
// of the agent model and, as the position in it, the line of the statement.
std::optional<Qel::TraceHelper> agentTrace(int level, const char* function,
                                           int position = __builtin_LINE());

}  // namespace MiscSnmp::Agent
