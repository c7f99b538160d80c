#include "benchmarks/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations = 0;
thread_local bool counting = false;

}  // namespace

void* operator new(std::size_t size) {
  if (counting) ++allocations;
  if (void* const pointer = std::malloc(size)) return pointer;
  throw std::bad_alloc();
}
void operator delete(void* pointer) noexcept { std::free(pointer); }
void operator delete(void* pointer, std::size_t /*size*/) noexcept { std::free(pointer); }

namespace bench {

void CountAllocations(bool on) { counting = on; }

std::size_t CountedAllocations() { return allocations; }

}  // namespace bench
