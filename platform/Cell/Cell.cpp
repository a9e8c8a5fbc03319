#include "Cell/Cell.h"

namespace Cell {

namespace {

U32 thisCell = 1;

}  // namespace

U32 cellId() noexcept { return thisCell; }

void cellIdIs(U32 cellId) noexcept { thisCell = cellId; }

}  // namespace Cell
