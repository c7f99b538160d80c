#ifndef ZUSKUX_BENCHMARKS_CASES_H_
#define ZUSKUX_BENCHMARKS_CASES_H_

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// One operation to measure, named GROUP/KIND/WHO: "request/vlan/library" next to
/// "request/vlan/floor".
struct Case {
  std::string name;
  /// Whether level 10 is on while it runs.
  bool traced = false;
  std::function<void()> run;
};

/// What the benchmarks of the library run: its operations, each next to the least that it could
/// cost, on one typical object of each kind and with a HAL client that does nothing. The first
/// case, "empty", does nothing: what it costs is the call of a case. The cases live as long as the
/// program; they are run on one thread.
const std::vector<Case>& AllCases();

/// Makes the log as `one` wants it, and runs it a few times, so that what is only done once is
/// done.
void Prepare(const Case& one);

/// Allocations with `operator new` so far.
std::size_t Allocations();

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_CASES_H_
