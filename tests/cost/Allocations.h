#pragma once

#include <cstddef>

namespace cost {

// What this program and its libraries have taken from the ordinary allocator through operator new.
struct Allocations {
  std::size_t made = 0;    // ever
  std::size_t octets = 0;  // held now, the allocator's own word for each among them
};

Allocations allocations() noexcept;

// Has one array refused for want of memory: of those that are asked for without throwing from now
// on, the one behind the first `given`.
void arrayIsRefusedAfter(int given) noexcept;
bool isArrayRefused() noexcept;  // whether it was asked for

}  // namespace cost
