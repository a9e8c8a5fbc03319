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
    SnmpTrace(0) << "hint for " << object << " has incorrect type! Expecting "
                 << unsigned{kIndexType} << " but got " << unsigned{varbind.type};
    return std::nullopt;
  }
  try {
    const Qel::RangeExceptionExpectation expectation;
    const U32 value = Snmp::AsnUnsignedToU32(varbind.val.integer);
    SnmpTrace(2) << "hint component " << object << " is '" << value << "'";
    return value;
  } catch (const Qel::RangeException& error) {
    SnmpTrace(0) << "hint for index " << object << " of norvekReloadCauseTable is out of range! "
                 << error.text();
    return std::nullopt;
  }
}

}  // namespace

std::optional<MiscSnmp::ReloadCauseKey> hintedKey(const netsnmp_table_request_info* hint) {
  if (hint == nullptr || hint->number_indexes != kIndexCount) return std::nullopt;
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
    SnmpTrace(2) << "norvekReloadCauseTable_get_first_data_point - needed 3 components, "
                 << "found only " << found;
    return std::nullopt;
  }
  return MiscSnmp::ReloadCauseKey(components[0], components[1], components[2]);
}

}  // namespace NorvekGeneralMIB
