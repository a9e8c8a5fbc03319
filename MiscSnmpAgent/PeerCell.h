#pragma once

#include "Cell/Cell.h"
#include "Qel/Types.h"

namespace MiscSnmp::Agent {

// The other supervisor: supervisors are the cells 1 and 2.
inline U32 peerCellId() noexcept { return 3 - Cell::cellId(); }

}  // namespace MiscSnmp::Agent
