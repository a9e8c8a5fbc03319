#pragma once

#include <limits>
#include <type_traits>

#include "Qel/Trace.h"

namespace NorvekGeneralMIB {

// The module's trace facility, "Snmp"; made on first use, taken down when the module is unloaded.
const Qel::TraceHandle& snmpTraceHandle();

inline constexpr int kUnknownSnmpTraceLevel = std::numeric_limits<int>::max();
// The level of that facility; until it is made, one that lets every trace ask for it.
inline constinit const int* snmpTraceLevel = &kUnknownSnmpTraceLevel;

// False for a level that is off; true for one that is on, and for any until the facility is made.
inline bool mayBeSnmpTraced(int level) { return level <= *snmpTraceLevel; }

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
  const Qel::TraceHandle& handle = snmpTraceHandle();
  if (!handle.isEnabled(level)) return;
  Qel::TraceHelper trace(handle, level, file, line, function);
  (trace << ... << parts);
}

// One line of that facility; a level that is off costs a test:
//   snmpTrace(2, "request mode ", mode);
template <class... Parts>
[[gnu::always_inline]] inline void snmpTrace(const SnmpTracePlace& place, const Parts&... parts) {
  if (mayBeSnmpTraced(place.level)) [[unlikely]] {
    writeSnmpTrace<std::decay_t<const Parts>...>(place.level, place.file, place.line,
                                                 place.function, parts...);
  }
}

// The lines of routine flow, level 2, of a callback that is compiled twice: as if they were on, and
// as if there were none.
constexpr int kRoutine = 2;

struct RoutineTrace {
  template <class... Parts>
  [[gnu::always_inline]] void operator()(SnmpTracePlace place, const Parts&... parts) const {
    snmpTrace(place, parts...);
  }
};
struct NoRoutineTrace {
  template <class... Parts>
  void operator()(const SnmpTracePlace& /*place*/, const Parts&... /*parts*/) const {}
};

template <class Call, class... Arguments>
[[gnu::noinline, gnu::cold]] auto callWithRoutineTrace(Call call, Arguments... arguments) {
  return call(RoutineTrace(), arguments...);
}

// Calls `call` with that trace, which is asked once whether it is on, and with the arguments:
//   withRoutineTrace([](auto trace, int mode) { trace(kRoutine, "mode ", mode); }, reqinfo->mode);
template <class Call, class... Arguments>
[[gnu::always_inline]] inline auto withRoutineTrace(Call call, Arguments... arguments) {
  if (mayBeSnmpTraced(kRoutine)) [[unlikely]]
    return callWithRoutineTrace(call, arguments...);
  return call(NoRoutineTrace(), arguments...);
}

}  // namespace NorvekGeneralMIB
