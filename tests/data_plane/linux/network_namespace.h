#ifndef ZUSKUX_TESTS_DATA_PLANE_LINUX_NETWORK_NAMESPACE_H_
#define ZUSKUX_TESTS_DATA_PLANE_LINUX_NETWORK_NAMESPACE_H_

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

/// A test in its own network namespace, with one Ethernet device "eth2" that is up. Needs root.
class NetworkNamespaceTest : public testing::Test {
 protected:
  void SetUp() override;

  /// Runs a shell command that must succeed.
  static void Run(const std::string& command);
  /// Whether a shell command succeeds; prints nothing.
  static bool Works(const std::string& command);
  /// The output of a shell command.
  static std::string Output(const std::string& command);
  /// Waits until the kernel has sent its notification that the device is up, which may lag.
  static void WaitUntilUp(const std::string& device);
  /// The output of `ip -N -j -d ...`, with numbers instead of the names that packages may add.
  static nlohmann::json Ip(const std::string& arguments);
};

#endif  // ZUSKUX_TESTS_DATA_PLANE_LINUX_NETWORK_NAMESPACE_H_
