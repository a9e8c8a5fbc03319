#pragma once

#include <cstddef>
#include <optional>
#include <utility>

#include "MiscSnmp/ReloadCauseKey.h"
#include "NorvekGeneralMIB/NetSnmp.h"
#include "NorvekGeneralMIB/ReloadCauseTable.h"
#include "NorvekGeneralMIB/SnmpTrace.h"
#include "Qel/Types.h"
#include "Snmp/Converters.h"

// Inline, as each walk begins with it.
namespace NorvekGeneralMIB {

// Traces why an index of the request, `object` in the MIB, is no component of a key.
void traceRefusedComponent(const netsnmp_variable_list& varbind, const char* object);

// Takes the next index of a request from the list and counts it. 0, and not counted, when there is
// none or it is no unsigned 32-bit number. Traced, good or bad.
template <class Trace>
U32 nextComponent(Trace trace, const netsnmp_variable_list*& varbinds, const char* object,
                  std::size_t& found) {
  if (varbinds == nullptr) return 0;
  const netsnmp_variable_list& varbind = *std::exchange(varbinds, varbinds->next_variable);
  if (varbind.type != kIndexType || !Snmp::isAsnUnsigned32(varbind.val.integer)) [[unlikely]] {
    traceRefusedComponent(varbind, object);
    return 0;
  }
  ++found;
  const U32 value = Snmp::AsnUnsignedToU32(varbind.val.integer);
  trace(kRoutine, "hint component ", object, " is '", value, "'");
  return value;
}

// The key that the indexes of a request name, when they name all of it; null for a request without
// exactly three index varbinds, or with one that is no unsigned 32-bit number. A bad one does not
// hide those behind it.
template <class Trace>
std::optional<MiscSnmp::ReloadCauseKey> hintedKey(Trace trace,
                                                  const netsnmp_table_request_info* hint) {
  if (hint == nullptr || hint->number_indexes != kIndexCount) return std::nullopt;
  const netsnmp_variable_list* varbinds = hint->indexes;
  std::size_t found = 0;
  const U32 unit = nextComponent(trace, varbinds, kIndexes[0].object, found);
  const U32 reload = nextComponent(trace, varbinds, kIndexes[1].object, found);
  const U32 cause = nextComponent(trace, varbinds, kIndexes[2].object, found);
  if (found == kIndexCount) return MiscSnmp::ReloadCauseKey(unit, reload, cause);
  trace(kRoutine, "norvekReloadCauseTable_get_first_data_point - needed 3 components, found only ",
        found);
  return std::nullopt;
}

}  // namespace NorvekGeneralMIB
