#include "cost/Comparisons.h"

#include <atomic>
#include <cstddef>

namespace cost {

namespace {

// A text may be compared on any thread.
std::atomic<std::size_t> compared;

}  // namespace

std::size_t comparisons() noexcept { return compared; }

}  // namespace cost

// In place of those of the C library, also for the libraries of this program.
extern "C" {

int memcmp(const void* a, const void* b, std::size_t size) noexcept {
  cost::compared.fetch_add(1, std::memory_order_relaxed);
  const auto* x = static_cast<const unsigned char*>(a);
  const auto* y = static_cast<const unsigned char*>(b);
  for (std::size_t i = 0; i < size; ++i) {
    if (x[i] != y[i]) return x[i] < y[i] ? -1 : 1;
  }
  return 0;
}

// What a compiler may call where only equality matters.
int bcmp(const void* a, const void* b, std::size_t size) noexcept { return memcmp(a, b, size); }
}
