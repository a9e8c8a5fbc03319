// In the place of mimalloc's, which is built as C: where there is no memory that ends the process.

#include <cstdlib>
#include <new>

// NOLINTNEXTLINE(misc-new-delete-overloads): mimalloc's deletes any memory of its own
void* operator new(std::size_t octets) {
  if (void* const memory = std::malloc(octets)) return memory;
  throw std::bad_alloc();
}

// NOLINTNEXTLINE(misc-new-delete-overloads): likewise
void* operator new[](std::size_t octets) { return operator new(octets); }
