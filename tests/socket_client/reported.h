#ifndef ZUSKUX_TESTS_SOCKET_CLIENT_REPORTED_H_
#define ZUSKUX_TESTS_SOCKET_CLIENT_REPORTED_H_

#include <chrono>
#include <functional>
#include <thread>

#include "reference/socket_client/socket_hal.h"
#include "tests/hal/reported.h"
#include "tests/socket_client/fake_server.h"

namespace reference {

/// Waits, within bounds, for a condition that nothing reports.
inline bool Eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace reference

#endif  // ZUSKUX_TESTS_SOCKET_CLIENT_REPORTED_H_
