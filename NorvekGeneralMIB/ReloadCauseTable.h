#pragma once

#include <array>
#include <cstddef>

#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmp/ReloadCauseKey.h"
#include "NorvekGeneralMIB/NetSnmp.h"
#include "Qel/Types.h"

// What norvekReloadCauseTable is, shared by its registration, its iteration and its handler.
namespace NorvekGeneralMIB {

// The place of a walk in the table: loop contexts and data contexts are objects of this type.
using RowIterator = MiscSnmp::GeneralMib::ReloadCauseTable::IteratorConst;

struct IndexObject {
  const char* object;     // its name in the MIB
  const char* component;  // its name in traces of a walk
  U32 (MiscSnmp::ReloadCauseKey::*value)() const noexcept;
};

inline constexpr std::size_t kIndexCount = 3;

// In the order of the fields of the key, which is that of the sub-identifiers of an instance.
inline constexpr std::array<IndexObject, kIndexCount> kIndexes{{
    {"norvekReloadUnitIndex", "unitIndex", &MiscSnmp::ReloadCauseKey::unitIndex},
    {"norvekReloadIndex", "reloadIndex", &MiscSnmp::ReloadCauseKey::instanceIndex},
    {"norvekReloadCauseIndex", "causeIndex", &MiscSnmp::ReloadCauseKey::causeIndex},
}};

inline constexpr u_char kIndexType = ASN_UNSIGNED;
static_assert(kIndexType == 0x42);

inline constexpr unsigned kDescriptionColumn = 4;
inline constexpr unsigned kTimeColumn = 5;

}  // namespace NorvekGeneralMIB
