#include "MiscSnmpAgent/ModuleTrace.h"

namespace MiscSnmp::Agent {

Qel::TraceHandle& _defaultTraceHandle() {
  static Qel::TraceHandle handle("MiscSnmp");
  return handle;
}

std::optional<Qel::TraceHelper> agentTrace(const TracePlace& place) {
  return Qel::TraceHelper::createIfEnabled(_defaultTraceHandle(), place.level, "MiscSnmpAgent",
                                           place.position, place.function);
}

}  // namespace MiscSnmp::Agent
