#ifndef ZUSKUX_TESTS_SUPPORT_GATE_H_
#define ZUSKUX_TESTS_SUPPORT_GATE_H_

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace reference {

/// Bounds every wait; only a failing test reaches it.
inline constexpr std::chrono::seconds kPatience(30);

/// Lets threads pass once opened.
class Gate {
 public:
  void Open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }

  void Pass() {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kPatience, [this] { return open_; }));
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_SUPPORT_GATE_H_
