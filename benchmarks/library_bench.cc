// Measures time and allocations of every case; takes Google Benchmark's options.

#include <benchmark/benchmark.h>

#include "benchmarks/cases.h"

int main(int argc, char** argv) {
  for (const bench::Case& one : bench::AllCases()) {
    benchmark::RegisterBenchmark(one.name.c_str(), [&one](benchmark::State& state) {
      bench::Prepare(one);
      for ([[maybe_unused]] auto iteration : state) one.run();
    });
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
