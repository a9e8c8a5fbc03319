#include "NorvekGeneralMIB/ReloadCauseTableHint.h"

#include <array>
#include <cstddef>

#include "NorvekGeneralMIB/ReloadCauseTable.h"
#include "NorvekGeneralMIB/SnmpTrace.h"
#include "Qel/Exception.h"
#include "Qel/Types.h"
#include "Snmp/Converters.h"

namespace NorvekGeneralMIB {

namespace {

std::optional<U32> readComponent(const netsnmp_variable_list& varbind, const char* object) {
  if (varbind.type != kIndexType) {
    snmpTrace(0, "hint for ", object, " has incorrect type! Expecting ", unsigned{kIndexType},
              " but got ", unsigned{varbind.type});
    return std::nullopt;
  }
  try {
    const Qel::RangeExceptionExpectation expectation;
    const U32 value = Snmp::AsnUnsignedToU32(varbind.val.integer);
    snmpTrace(2, "hint component ", object, " is '", value, "'");
    return value;
  } catch (const Qel::RangeException& error) {
    snmpTrace(0, "hint for index ", object, " of norvekReloadCauseTable is out of range! ",
              error.text());
    return std::nullopt;
  }
}

// The key that `hint` names, or nothing where any of it would have to be traced.
std::optional<MiscSnmp::ReloadCauseKey> plainKey(const netsnmp_table_request_info& hint) {
  if (isSnmpTraced(2)) return std::nullopt;
  std::array<U32, kIndexCount> components{};
  const netsnmp_variable_list* varbind = hint.indexes;
  for (U32& component : components) {
    if (varbind == nullptr || varbind->type != kIndexType) return std::nullopt;
    if (!Snmp::isAsnUnsigned32(varbind->val.integer)) return std::nullopt;
    component = Snmp::AsnUnsignedToU32(varbind->val.integer);
    varbind = varbind->next_variable;
  }
  return MiscSnmp::ReloadCauseKey(components[0], components[1], components[2]);
}

}  // namespace

std::optional<MiscSnmp::ReloadCauseKey> hintedKey(const netsnmp_table_request_info* hint) {
  if (hint == nullptr || hint->number_indexes != kIndexCount) return std::nullopt;
  if (const auto key = plainKey(*hint)) return key;
  std::array<U32, kIndexCount> components{};
  std::size_t found = 0;
  const netsnmp_variable_list* varbind = hint->indexes;
  for (std::size_t i = 0; i < kIndexCount && varbind != nullptr; ++i) {
    // A bad component stays 0 and does not hide those behind it.
    const std::optional<U32> component = readComponent(*varbind, kIndexes[i].object);
    components[i] = component.value_or(0);
    if (component) ++found;
    varbind = varbind->next_variable;
  }
  if (found < kIndexCount) {
    snmpTrace(2, "norvekReloadCauseTable_get_first_data_point - needed 3 components, found only ",
              found);
    return std::nullopt;
  }
  return MiscSnmp::ReloadCauseKey(components[0], components[1], components[2]);
}

}  // namespace NorvekGeneralMIB
