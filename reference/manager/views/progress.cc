#include "reference/manager/views/progress.h"

#include <algorithm>
#include <utility>

namespace reference {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kQuiet{1000};
constexpr milliseconds kBarInterval{100};
constexpr std::size_t kMaxBarWidth = 40;
constexpr std::size_t kMinBarWidth = 10;

std::string Rate(const ProgressState& state) {
  const auto elapsed =
      static_cast<std::size_t>(std::max<milliseconds::rep>(1, state.elapsed.count()));
  return std::to_string(state.done * 1000 / elapsed) + " objects/s";
}

std::string Elapsed(const std::string& what, const ProgressState& state) {
  return what + ": " + std::to_string(state.elapsed.count() / 1000) + " s";
}

}  // namespace

std::string ProgressBar(const std::string& what, const ProgressState& state, std::size_t columns) {
  if (state.total == 0) return Elapsed(what, state);
  const std::size_t done = std::min(state.done, state.total);
  std::string percent = std::to_string(done * 100 / state.total);
  percent.insert(0, 3 - percent.size(), ' ');
  const std::string figures = percent + "% " + Rate(state);
  // The brackets and the spaces around them.
  const std::size_t others = what.size() + 4 + figures.size();
  if (columns < others + kMinBarWidth) return what + ' ' + figures;
  const std::size_t width = std::min(kMaxBarWidth, columns - others);
  std::string bar(done * width / state.total, '#');
  bar.resize(width, ' ');
  return what + " [" + bar + "] " + figures;
}

Progress::Progress(std::string what, LogSink* log)
    : what_(std::move(what)), log_(log), thread_(&Progress::Run, this) {}

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
  milliseconds wait = kQuiet;
  while (!ended_.wait_for(lock, wait, [this] { return ending_; })) {
    wait = kBarInterval;
    ProgressState state = state_;
    state.elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - start_);
    log_->ShowStatus(ProgressBar(what_, state, log_->columns()));
  }
  log_->ShowStatus("");
}

}  // namespace reference
