// Runs every case under valgrind's callgrind, which dumps the cost of each case separately:
//
//     valgrind --tool=callgrind --callgrind-out-file=FILE --combine-dumps=yes count_cases
//
// Each dump has the name of its case and covers kRuns runs. Prints the allocations of one run of
// each case.

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
