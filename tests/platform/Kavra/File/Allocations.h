#pragma once

#include <cstddef>

namespace kavratest {

// How many octets were asked for with `new` since the program began, given back or not.
std::size_t allocatedOctets() noexcept;

}  // namespace kavratest
