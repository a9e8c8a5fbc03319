#include "NorvekGeneralMIB/ReloadCauseTableHint.h"

#include "Qel/Exception.h"

namespace NorvekGeneralMIB {

void traceRefusedComponent(const netsnmp_variable_list& varbind, const char* object) {
  if (varbind.type != kIndexType) {
    snmpTrace(0, "hint for ", object, " has incorrect type! Expecting ", unsigned{kIndexType},
              " but got ", unsigned{varbind.type});
    return;
  }
  try {
    const Qel::RangeExceptionExpectation expectation;
    static_cast<void>(Snmp::AsnUnsignedToU32(varbind.val.integer));
  } catch (const Qel::RangeException& error) {
    snmpTrace(0, "hint for index ", object, " of norvekReloadCauseTable is out of range! ",
              error.text());
  }
}

}  // namespace NorvekGeneralMIB
