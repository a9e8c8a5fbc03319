#pragma once

#include <optional>

#include "MiscSnmp/ReloadCauseKey.h"
#include "NorvekGeneralMIB/NetSnmp.h"

namespace NorvekGeneralMIB {

// The key that the indexes of a request name, when they name all of it; null for a request without
// exactly three index varbinds, or with one that is no unsigned 32-bit number. Every component that
// is read is traced, good or bad.
std::optional<MiscSnmp::ReloadCauseKey> hintedKey(const netsnmp_table_request_info* hint);

}  // namespace NorvekGeneralMIB
