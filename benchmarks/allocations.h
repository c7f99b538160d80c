#ifndef ZUSKUX_BENCHMARKS_ALLOCATIONS_H_
#define ZUSKUX_BENCHMARKS_ALLOCATIONS_H_

#include <cstddef>

namespace bench {

// In programs that link allocations.cc, which replaces `operator new`.

/// Begins or ends the counting of allocations on the calling thread.
void CountAllocations(bool on);

/// Number of allocations counted so far, on all threads.
std::size_t CountedAllocations();

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_ALLOCATIONS_H_
