#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRESS_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRESS_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

#include "reference/log/log_sink.h"

namespace reference {

/// How far a piece of work is.
struct ProgressState {
  /// Nothing is known of the amount while `total` is 0.
  std::size_t done = 0;
  std::size_t total = 0;
  std::chrono::milliseconds elapsed{0};
};

/// "installing [#####               ]  25% 1000 objects/s", in at most `columns` characters: the
/// bar gets shorter, then there is none. "reading big.txtpb: 4 s" without a total.
std::string ProgressBar(const std::string& what, const ProgressState& state, std::size_t columns);

/// Shows on a terminal how far a long piece of work is, elsewhere nothing. Work of less than a
/// second shows nothing either. Works on a thread of its own from construction to destruction;
/// `Set` may be called on any thread.
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

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRESS_H_
