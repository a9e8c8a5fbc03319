#pragma once

#include <optional>

#include "Qel/Trace.h"

namespace MiscSnmp::Agent {

// The module's access to the trace facility "MiscSnmp"; made on first use, lives until unload.
Qel::TraceHandle& _defaultTraceHandle();

// Level and place of a trace statement. A bare level takes the name of the function and the line
// that it stands in.
struct TracePlace {
  TracePlace(int atLevel, const char* inFunction = __builtin_FUNCTION(),
             int atPosition = __builtin_LINE()) noexcept
      : level(atLevel), function(inFunction), position(atPosition) {}

  int level;
  const char* function;
  int position;
};

// A trace line of the handler at `place`, or nothing when the level is off. Records carry the name
// of the agent model and, as the position in it, the line of the statement.
std::optional<Qel::TraceHelper> agentTrace(const TracePlace& place);

}  // namespace MiscSnmp::Agent
