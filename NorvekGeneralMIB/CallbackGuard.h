#pragma once

#include <exception>

#include "NorvekGeneralMIB/SnmpTrace.h"

namespace NorvekGeneralMIB {

// Runs what a callback of net-snmp does and returns its result. net-snmp is C: nothing may be
// thrown through it, so what escapes is traced as an error and `fallback` decides the result.
// Inlined, since several stand on the way of every varbind.
template <class Call, class Fallback>
[[gnu::always_inline]] inline auto withoutThrowing(const char* callback, const Call& call,
                                                   const Fallback& fallback) noexcept {
  try {
    try {
      return call();
    } catch (const std::exception& error) {
      snmpTrace(0, callback, " failed: ", error.what());
    } catch (...) {
      snmpTrace(0, callback, " failed: unknown exception");
    }
  } catch (...) {
    // Not even the trace could be written; the result still tells.
  }
  return fallback();
}

}  // namespace NorvekGeneralMIB
