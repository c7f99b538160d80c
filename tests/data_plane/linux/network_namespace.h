#ifndef ZUSKUX_TESTS_DATA_PLANE_LINUX_NETWORK_NAMESPACE_H_
#define ZUSKUX_TESTS_DATA_PLANE_LINUX_NETWORK_NAMESPACE_H_

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

/// A test in a network namespace of its own, with one Ethernet device "eth2" that is up. Needs
/// root.
class NetworkNamespaceTest : public testing::Test {
 protected:
  void SetUp() override;

  /// Runs a shell command that has to work.
  static void Run(const std::string& command);
  /// Whether a shell command works; prints nothing.
  static bool Works(const std::string& command);
  /// What a shell command prints.
  static std::string Output(const std::string& command);
  /// Waits until the kernel has told everybody that the device is up, which it does later.
  static void WaitUntilUp(const std::string& device);
  /// What `ip -j -d ...` prints.
  static nlohmann::json Ip(const std::string& arguments);
};

#endif  // ZUSKUX_TESTS_DATA_PLANE_LINUX_NETWORK_NAMESPACE_H_
