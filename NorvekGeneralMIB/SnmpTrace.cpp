#include "NorvekGeneralMIB/SnmpTrace.h"

namespace NorvekGeneralMIB {

const Qel::TraceHandle& snmpTraceHandle() {
  static const Qel::TraceHandle handle("Snmp");
  presentSnmpTraceHandle = &handle;
  return handle;
}

}  // namespace NorvekGeneralMIB
