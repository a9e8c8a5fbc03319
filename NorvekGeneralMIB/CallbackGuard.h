#pragma once

namespace NorvekGeneralMIB {

// Traces the exception in hand as the error of `callback`. To be called in a handler of it.
void traceEscaped(const char* callback) noexcept;

// Runs what a callback of net-snmp does and returns its result. net-snmp is C: nothing may be
// thrown through it, so what escapes is traced as an error and `fallback` decides the result.
// Inlined, since several stand on the way of every varbind.
template <class Call, class Fallback>
[[gnu::always_inline]] inline auto withoutThrowing(const char* callback, const Call& call,
                                                   const Fallback& fallback) noexcept {
  try {
    return call();
  } catch (...) {
    traceEscaped(callback);
  }
  return fallback();
}

}  // namespace NorvekGeneralMIB
