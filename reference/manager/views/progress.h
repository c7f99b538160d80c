#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_PROGRESS_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_PROGRESS_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

#include "reference/log/log_sink.h"

namespace reference {

/// How far a task has got.
struct ProgressState {
  /// While `total` is 0, the amount of work is unknown.
  std::size_t done = 0;
  std::size_t total = 0;
  std::chrono::milliseconds elapsed{0};
};

/// "installing [#####               ]  25% 1000 objects/s", in at most `columns` characters: the
/// bar shrinks, then disappears. Without a total: "reading big.txtpb: 4 s".
std::string ProgressBar(const std::string& what, const ProgressState& state, std::size_t columns);

/// Shows the progress of a long task, on a terminal only and not during its first second. Runs on
/// its own thread from construction to destruction. `Set` may be called on any thread.
class Progress {
 public:
  /// `log` is not owned.
  Progress(std::string what, LogSink* log);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  /// Removes the bar.
  ~Progress();

  void Set(std::size_t done, std::size_t total);

 private:
  using Clock = std::chrono::steady_clock;

  void Run();

  const std::string what_;
  LogSink* const log_;
  const Clock::time_point start_ = Clock::now();

  std::mutex mutex_;
  std::condition_variable ended_;
  // Guarded by `mutex_`.
  ProgressState state_;
  bool ending_ = false;

  std::thread thread_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_PROGRESS_H_
