#ifndef ZUSKUX_BENCHMARKS_CASES_H_
#define ZUSKUX_BENCHMARKS_CASES_H_

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// One operation to measure, named GROUP/KIND/SUBJECT: "request/vlan/library" is compared with
/// "request/vlan/floor".
struct Case {
  std::string name;
  /// Whether the trace level (10) is enabled while it runs.
  bool traced = false;
  std::function<void()> run;
};

/// The cases of the library's benchmarks: each of its operations and a hand-written lower bound
/// (floor) for it, on one typical object of each kind and with a HAL client that does nothing. The
/// first case, "empty", does nothing, so it measures the overhead of calling a case. The cases live
/// until the program ends and run on one thread.
const std::vector<Case>& AllCases();

/// Sets up the log for `one` and runs it a few times, so that one-time work is not measured.
void Prepare(const Case& one);

/// Number of allocations with `operator new` so far.
std::size_t Allocations();

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_CASES_H_
