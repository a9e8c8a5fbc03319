#include "NorvekGeneralMIB/CallbackGuard.h"

#include <exception>

#include "NorvekGeneralMIB/SnmpTrace.h"

namespace NorvekGeneralMIB {

void traceEscaped(const char* callback) noexcept {
  try {
    try {
      throw;
    } catch (const std::exception& error) {
      snmpTrace(0, callback, " failed: ", error.what());
    } catch (...) {
      snmpTrace(0, callback, " failed: unknown exception");
    }
  } catch (...) {
    // Not even the trace could be written; the result still tells.
  }
}

}  // namespace NorvekGeneralMIB
