#include "platform/Kavra/File/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocated = 0;

void* allocate(std::size_t octets) noexcept {
  allocated += octets;
  return std::malloc(octets == 0 ? 1 : octets);
}

}  // namespace

// In the place of the library's, for this whole program.
void* operator new(std::size_t octets) {
  if (void* const memory = allocate(octets)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t octets, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(octets);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*octets*/) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }

namespace kavratest {

std::size_t allocatedOctets() noexcept { return allocated; }

}  // namespace kavratest
