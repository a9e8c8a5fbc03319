#pragma once

#include <cstddef>

namespace cost {

// What this program and its libraries have taken from the ordinary allocator through operator new.
struct Allocations {
  std::size_t made = 0;    // ever
  std::size_t octets = 0;  // held now, the allocator's own word for each among them
};

Allocations allocations() noexcept;

}  // namespace cost
