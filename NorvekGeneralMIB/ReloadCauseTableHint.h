#pragma once

#include <cstddef>
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

// What the indexes of a request name: a key when `found`, the number of good ones, is all of them.
struct HintedKey {
  MiscSnmp::ReloadCauseKey key;
  std::size_t found = 0;

  explicit operator bool() const noexcept { return found == kIndexCount; }
};

// No key of a request without exactly three index varbinds, or with one that is no unsigned 32-bit
// number. A bad one does not hide those behind it.
template <class Trace>
HintedKey hintedKey(Trace trace, const netsnmp_table_request_info* hint) {
  HintedKey hinted;
  if (hint == nullptr || hint->number_indexes != kIndexCount) return hinted;
  const netsnmp_variable_list* varbinds = hint->indexes;
  const U32 unit = nextComponent(trace, varbinds, kIndexes[0].object, hinted.found);
  const U32 reload = nextComponent(trace, varbinds, kIndexes[1].object, hinted.found);
  const U32 cause = nextComponent(trace, varbinds, kIndexes[2].object, hinted.found);
  hinted.key = MiscSnmp::ReloadCauseKey(unit, reload, cause);
  if (!hinted) {
    trace(kRoutine,
          "norvekReloadCauseTable_get_first_data_point - needed 3 components, found only ",
          hinted.found);
  }
  return hinted;
}

}  // namespace NorvekGeneralMIB
