// In the place of mimalloc's, which is built as C: where there is no memory that ends the process.

#include <cstdlib>
#include <new>

void* operator new(std::size_t octets) {
  if (void* const memory = std::malloc(octets)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t octets) { return operator new(octets); }
void* operator new(std::size_t octets, const std::nothrow_t& /*tag*/) noexcept {
  return std::malloc(octets);
}
void* operator new[](std::size_t octets, const std::nothrow_t& /*tag*/) noexcept {
  return std::malloc(octets);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*octets*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*octets*/) noexcept { std::free(memory); }
