#ifndef ZUSKUX_TESTS_SUPPORT_ALLOCATIONS_H_
#define ZUSKUX_TESTS_SUPPORT_ALLOCATIONS_H_

#include <cstddef>

namespace testing_support {

// Linking this replaces the test program's global `operator new` and `operator delete`.

/// Allocations made with `operator new` by this thread so far.
std::size_t AllocationCount();

/// Allocations of the whole program that have not been deleted.
std::ptrdiff_t LiveAllocations();

/// The memory of these allocations, including the heap's own 8 bytes for each.
std::ptrdiff_t LiveBytes();

/// Makes the `n`-th allocation of this thread from now on throw `std::bad_alloc` (1 is the next
/// one); with `all_after`, also every later one. 0 stops that.
void FailAllocation(std::size_t n, bool all_after = false);

/// Adds `event`, once, when `operator delete` gets `pointer`. Several pointers can be watched at a
/// time; null forgets them all.
void WatchDeletion(const void* pointer, const char* event = "message freed");

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_ALLOCATIONS_H_
