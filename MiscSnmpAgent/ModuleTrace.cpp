#include "MiscSnmpAgent/ModuleTrace.h"

namespace MiscSnmp::Agent {

Qel::TraceHandle& _defaultTraceHandle() {
  static Qel::TraceHandle handle("MiscSnmp");
  return handle;
}

std::optional<Qel::TraceHelper> agentTrace(int level, const char* function, int position) {
  return Qel::TraceHelper::createIfEnabled(_defaultTraceHandle(), level, "MiscSnmpAgent", position,
                                           function);
}

}  // namespace MiscSnmp::Agent
