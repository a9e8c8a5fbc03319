#include "NorvekGeneralMIB/SnmpTrace.h"

namespace NorvekGeneralMIB {

const Qel::TraceHandle& snmpTraceHandle() {
  static const Qel::TraceHandle handle("Snmp");
  snmpTraceLevel = &handle.level();
  return handle;
}

}  // namespace NorvekGeneralMIB
