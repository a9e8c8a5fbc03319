#pragma once

#include <cstdint>

// The unsigned 32-bit number of every index, key and cell id.
using U32 = std::uint32_t;
