#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRESS_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRESS_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace reference {

/// How far a piece of work is.
struct ProgressState {
  /// Nothing is known of the amount while `total` is 0.
  std::size_t done = 0;
  std::size_t total = 0;
  std::chrono::milliseconds elapsed{0};
};

/// "installing: 2000 of 10000 objects, 1000 objects/s"; "reading big.txtpb: 4 s" without a total.
std::string ProgressLine(const std::string& what, const ProgressState& state);

/// "installing [#####               ]  25% 1000 objects/s", to be written over the one before.
std::string ProgressBar(const std::string& what, const ProgressState& state);

/// Shows how far a long piece of work is: a bar on a terminal, elsewhere a line now and then. Work
/// of less than a second shows nothing. Writes on a thread of its own from construction to
/// destruction; `Set` may be called on any thread.
class Progress {
 public:
  /// `out` is not owned.
  Progress(std::string what, std::ostream* out, bool terminal);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  /// Wipes the bar away.
  ~Progress();

  void Set(std::size_t done, std::size_t total);

 private:
  using Clock = std::chrono::steady_clock;

  void Run();

  const std::string what_;
  std::ostream* const out_;
  const bool terminal_;
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
