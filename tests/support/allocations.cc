#include "tests/support/allocations.h"

#include <malloc.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/events.h"

namespace testing_support {
namespace {

thread_local std::size_t allocation_count = 0;
thread_local std::size_t until_failure = 0;
thread_local bool all_after_fail = false;
std::atomic<std::ptrdiff_t> live_allocations{0};
std::atomic<std::ptrdiff_t> live_bytes{0};

struct Watch {
  std::atomic<const void*> pointer{nullptr};
  std::atomic<const char*> event{nullptr};
};

std::array<Watch, 16> watches;

std::ptrdiff_t BytesOf(void* pointer) {
  return static_cast<std::ptrdiff_t>(malloc_usable_size(pointer) + sizeof(std::size_t));
}

void* Allocate(std::size_t size) {
  if (until_failure != 0 && --until_failure == 0) {
    if (all_after_fail) until_failure = 1;
    throw std::bad_alloc();
  }
  void* pointer = std::malloc(size == 0 ? 1 : size);
  if (pointer == nullptr) throw std::bad_alloc();
  ++allocation_count;
  ++live_allocations;
  live_bytes += BytesOf(pointer);
  return pointer;
}

void Deallocate(void* pointer) {
  if (pointer == nullptr) return;
  --live_allocations;
  live_bytes -= BytesOf(pointer);
  const char* event = nullptr;
  for (Watch& watch : watches) {
    const void* expected = pointer;
    if (watch.pointer.compare_exchange_strong(expected, nullptr)) event = watch.event;
  }
  std::free(pointer);
  if (event != nullptr) AddEvent(event);
}

}  // namespace

std::size_t AllocationCount() { return allocation_count; }

std::ptrdiff_t LiveAllocations() { return live_allocations; }

std::ptrdiff_t LiveBytes() { return live_bytes; }

void FailAllocation(std::size_t n, bool all_after) {
  until_failure = n;
  all_after_fail = all_after;
}

void WatchDeletion(const void* pointer, const char* event) {
  for (Watch& watch : watches) {
    if (pointer == nullptr) {
      watch.pointer = nullptr;
    } else if (watch.pointer == nullptr) {
      watch.event = event;
      watch.pointer = pointer;
      return;
    }
  }
}

}  // namespace testing_support

void* operator new(std::size_t size) { return testing_support::Allocate(size); }
void* operator new[](std::size_t size) { return testing_support::Allocate(size); }
void operator delete(void* pointer) noexcept { testing_support::Deallocate(pointer); }
void operator delete[](void* pointer) noexcept { testing_support::Deallocate(pointer); }
void operator delete(void* pointer, std::size_t) noexcept { testing_support::Deallocate(pointer); }
void operator delete[](void* pointer, std::size_t) noexcept {
  testing_support::Deallocate(pointer);
}
