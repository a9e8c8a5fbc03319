#include "cost/Allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace cost {

namespace {

Allocations counted;
int arraysUntilRefusal = -1;  // below zero: none is refused any more

std::size_t octetsOf(void* block) { return ::malloc_usable_size(block) + sizeof(std::size_t); }

void* take(std::size_t size) noexcept {
  void* const block = std::malloc(size);
  if (block == nullptr) return nullptr;
  ++counted.made;
  counted.octets += octetsOf(block);
  return block;
}

void release(void* block) noexcept {
  if (block != nullptr) counted.octets -= octetsOf(block);
  std::free(block);
}

}  // namespace

Allocations allocations() noexcept { return counted; }

void arrayIsRefusedAfter(int given) noexcept { arraysUntilRefusal = given; }

bool isArrayRefused() noexcept { return arraysUntilRefusal < 0; }

}  // namespace cost

void* operator new(std::size_t size) {
  if (void* const block = cost::take(size)) return block;
  throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return cost::take(size);
}

void operator delete(void* block) noexcept { cost::release(block); }

void operator delete(void* block, std::size_t /*size*/) noexcept { cost::release(block); }

// Those of arrays would come here by themselves, but for the sanitizers, which have their own.
void* operator new[](std::size_t size) { return operator new(size); }

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  if (cost::arraysUntilRefusal >= 0 && cost::arraysUntilRefusal-- == 0) return nullptr;
  return cost::take(size);
}

void operator delete[](void* block) noexcept { cost::release(block); }

void operator delete[](void* block, std::size_t /*size*/) noexcept { cost::release(block); }
