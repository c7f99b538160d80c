#ifndef ZUSKUX_BENCHMARKS_CHILD_PROCESS_H_
#define ZUSKUX_BENCHMARKS_CHILD_PROCESS_H_

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/// A program that runs beside this one, on the first of its cores. Owned by the measurement.
class ChildProcess {
 public:
  /// Starts it, with its standard output discarded. Throws `std::system_error`.
  explicit ChildProcess(std::vector<std::string> command);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  /// Ends it.
  ~ChildProcess();

  bool HasEnded() const;
  /// The processor time of all its threads so far, including the kernel's work for them.
  std::chrono::nanoseconds ProcessorTime() const;
  /// Its resident memory.
  std::size_t ResidentBytes() const;

 private:
  pid_t pid_;
};

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_CHILD_PROCESS_H_
