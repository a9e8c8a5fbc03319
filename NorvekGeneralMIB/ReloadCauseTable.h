#pragma once

#include <array>
#include <cstddef>
#include <utility>

#include "MiscSnmp/GeneralMib.h"
#include "NorvekGeneralMIB/NetSnmp.h"

// What norvekReloadCauseTable is, shared by its registration, its iteration and its handler.
namespace NorvekGeneralMIB {

// The place of a walk in the table: loop contexts and data contexts are objects of this type.
//
// Larger than it needs to be, for agents that allocate with the C library: of the smaller sizes
// net-snmp frees more for each request than that keeps at hand, which makes the next ones dear.
using RowPlace = MiscSnmp::GeneralMib::ReloadCauseTable::IteratorConst;
class RowIterator final : public RowPlace {
 public:
  explicit RowIterator(RowPlace&& place) : RowPlace(std::move(place)) {}
  RowIterator(const RowIterator& other) : RowPlace(other) {}  // not what is unused
  RowIterator& operator=(const RowIterator&) = default;
  ~RowIterator() = default;

 private:
  [[maybe_unused]] std::array<std::byte, 24> unused_;
};
static_assert(sizeof(RowIterator) > 40);

struct IndexObject {
  const char* object;     // its name in the MIB
  const char* component;  // its name in traces of a walk
};

inline constexpr std::size_t kIndexCount = 3;

// In the order of the fields of the key, which is that of the sub-identifiers of an instance.
inline constexpr std::array<IndexObject, kIndexCount> kIndexes{{
    {"norvekReloadUnitIndex", "unitIndex"},
    {"norvekReloadIndex", "reloadIndex"},
    {"norvekReloadCauseIndex", "causeIndex"},
}};

inline constexpr u_char kIndexType = ASN_UNSIGNED;
static_assert(kIndexType == 0x42);

inline constexpr unsigned kDescriptionColumn = 4;
inline constexpr unsigned kTimeColumn = 5;

}  // namespace NorvekGeneralMIB
