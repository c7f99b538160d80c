#include "reference/manager/progress.h"

#include <algorithm>
#include <utility>

namespace reference {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kQuiet{1000};
constexpr milliseconds kBarInterval{100};
constexpr milliseconds kLineInterval{2000};
constexpr std::size_t kBarWidth = 40;
// Back to the start of the line, which is erased.
constexpr char kWipe[] = "\r\x1b[K";

std::string Rate(const ProgressState& state) {
  const auto elapsed =
      static_cast<std::size_t>(std::max<milliseconds::rep>(1, state.elapsed.count()));
  return std::to_string(state.done * 1000 / elapsed) + " objects/s";
}

std::string Elapsed(const std::string& what, const ProgressState& state) {
  return what + ": " + std::to_string(state.elapsed.count() / 1000) + " s";
}

}  // namespace

std::string ProgressLine(const std::string& what, const ProgressState& state) {
  if (state.total == 0) return Elapsed(what, state);
  return what + ": " + std::to_string(state.done) + " of " + std::to_string(state.total) +
         " objects, " + Rate(state);
}

std::string ProgressBar(const std::string& what, const ProgressState& state) {
  if (state.total == 0) return Elapsed(what, state);
  const std::size_t done = std::min(state.done, state.total);
  std::string bar(done * kBarWidth / state.total, '#');
  bar.resize(kBarWidth, ' ');
  std::string percent = std::to_string(done * 100 / state.total);
  percent.insert(0, 3 - percent.size(), ' ');
  return what + " [" + bar + "] " + percent + "% " + Rate(state);
}

Progress::Progress(std::string what, std::ostream* out, bool terminal)
    : what_(std::move(what)), out_(out), terminal_(terminal), thread_(&Progress::Run, this) {}

Progress::~Progress() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  ended_.notify_one();
  thread_.join();
}

void Progress::Set(std::size_t done, std::size_t total) {
  const std::lock_guard lock(mutex_);
  state_.done = done;
  state_.total = total;
}

void Progress::Run() {
  std::unique_lock lock(mutex_);
  milliseconds wait = terminal_ ? kQuiet : std::max(kQuiet, kLineInterval);
  bool shown = false;
  while (!ended_.wait_for(lock, wait, [this] { return ending_; })) {
    wait = terminal_ ? kBarInterval : kLineInterval;
    ProgressState state = state_;
    state.elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - start_);
    if (terminal_) {
      *out_ << kWipe << ProgressBar(what_, state) << std::flush;
    } else {
      *out_ << ProgressLine(what_, state) << std::endl;
    }
    shown = true;
  }
  if (terminal_ && shown) *out_ << kWipe << std::flush;
}

}  // namespace reference
