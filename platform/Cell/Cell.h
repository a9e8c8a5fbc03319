#pragma once

#include "Qel/Types.h"

// The slots of a device: cells 1 and 2 are its supervisors.
namespace Cell {

// The cell that runs this process; 1 until told otherwise.
U32 cellId() noexcept;
// Set once, by the process's own start-up, before anything asks.
void cellIdIs(U32 cellId) noexcept;

}  // namespace Cell
