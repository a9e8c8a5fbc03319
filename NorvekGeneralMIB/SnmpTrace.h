#pragma once

#include <type_traits>

#include "Qel/Trace.h"

namespace NorvekGeneralMIB {

// The module's trace facility, "Snmp"; made on first use, taken down when the module is unloaded.
const Qel::TraceHandle& snmpTraceHandle();

// Null until it is made.
inline constinit const Qel::TraceHandle* presentSnmpTraceHandle = nullptr;

inline bool isSnmpTraced(int level) {
  const Qel::TraceHandle* const present = presentSnmpTraceHandle;
  return (present != nullptr ? *present : snmpTraceHandle()).isEnabled(level);
}

// Level and place of a trace statement. A bare level takes the place that it stands in.
struct SnmpTracePlace {
  SnmpTracePlace(int atLevel, const char* inFile = __builtin_FILE(), int atLine = __builtin_LINE(),
                 const char* inFunction = __builtin_FUNCTION()) noexcept
      : level(atLevel), file(inFile), line(atLine), function(inFunction) {}

  int level;
  const char* file;
  int line;
  const char* function;
};

// Out of the way of the callbacks, which seldom trace. By value, lest they keep in memory what a
// trace might want to see.
template <class... Parts>
[[gnu::noinline, gnu::cold]] void writeSnmpTrace(int level, const char* file, int line,
                                                 const char* function, Parts... parts) {
  Qel::TraceHelper trace(snmpTraceHandle(), level, file, line, function);
  (trace << ... << parts);
}

// One line of that facility; a level that is off costs a test:
//   snmpTrace(2, "request mode ", mode);
template <class... Parts>
[[gnu::always_inline]] inline void snmpTrace(const SnmpTracePlace& place, const Parts&... parts) {
  if (isSnmpTraced(place.level)) [[unlikely]] {
    writeSnmpTrace<std::decay_t<const Parts>...>(place.level, place.file, place.line,
                                                 place.function, parts...);
  }
}

}  // namespace NorvekGeneralMIB
