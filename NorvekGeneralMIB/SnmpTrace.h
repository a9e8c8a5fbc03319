#pragma once

#include <optional>

#include "Qel/Trace.h"

namespace NorvekGeneralMIB {

// The module's trace facility, "Snmp"; made on first use, taken down when the module is unloaded.
const Qel::TraceHandle& snmpTraceHandle();

// One line of that facility, written when the statement ends; a level that is off costs a test:
//   SnmpTrace(2) << "request mode " << mode;
class SnmpTrace {
 public:
  explicit SnmpTrace(int level, const char* file = __builtin_FILE(), int line = __builtin_LINE(),
                     const char* function = __builtin_FUNCTION())
      : helper_(Qel::TraceHelper::createIfEnabled(snmpTraceHandle(), level, file, line, function)) {
  }

  template <class T>
  SnmpTrace& operator<<(const T& part) {
    if (helper_) *helper_ << part;
    return *this;
  }

 private:
  std::optional<Qel::TraceHelper> helper_;
};

}  // namespace NorvekGeneralMIB
