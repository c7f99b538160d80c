// Runs every case under valgrind's callgrind, which writes what each takes as a part of its own:
//
//   valgrind --tool=callgrind --callgrind-out-file=FILE --combine-dumps=yes count_cases
//
// The parts are named by their cases, for kRuns runs. Prints the allocations of one run of each.

#include <valgrind/callgrind.h>

#include <cstddef>
#include <iostream>

#include "benchmarks/cases.h"

namespace {

constexpr int kRuns = 100;

}  // namespace

int main() {
  std::cout << "runs " << kRuns << "\n";
  for (const bench::Case& one : bench::AllCases()) {
    bench::Prepare(one);
    const std::size_t before = bench::Allocations();
    one.run();
    const std::size_t allocations = bench::Allocations() - before;

    CALLGRIND_ZERO_STATS;
    for (int run = 0; run < kRuns; ++run) one.run();
    CALLGRIND_DUMP_STATS_AT(one.name.c_str());
    std::cout << one.name << " " << allocations << "\n";
  }
  return 0;
}
