#pragma once

#include <cstddef>

namespace cost {

// How often this program and its libraries have compared texts, octet by octet, so far. Inline
// comparisons of texts whose length the compiler knows are not among them.
std::size_t comparisons() noexcept;

}  // namespace cost
