#include "tests/data_plane/linux/network_namespace.h"

#include <sched.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

void NetworkNamespaceTest::SetUp() {
  if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "needs root, for a network namespace of its own";
  Run("ip link set lo up");
  Run("ip link add eth2 type veth peer name far2");
  Run("ip link set eth2 up");
  Run("ip link set far2 up");
  WaitUntilUp("eth2");
  WaitUntilUp("far2");
}

void NetworkNamespaceTest::Run(const std::string& command) {
  ASSERT_EQ(std::system(command.c_str()), 0) << command;  // NOLINT(cert-env33-c)
}

bool NetworkNamespaceTest::Works(const std::string& command) {
  return std::system(("(" + command + ") >/dev/null 2>&1").c_str()) == 0;  // NOLINT(cert-env33-c)
}

std::string NetworkNamespaceTest::Output(const std::string& command) {
  const auto close = [](FILE* pipe) { EXPECT_EQ(pclose(pipe), 0); };
  const std::unique_ptr<FILE, decltype(close)> pipe(popen(command.c_str(), "r"),  // NOLINT
                                                    close);
  std::string output;
  std::array<char, 4096> buffer{};
  while (const std::size_t count = fread(buffer.data(), 1, buffer.size(), pipe.get())) {
    output.append(buffer.data(), count);
  }
  return output;
}

void NetworkNamespaceTest::WaitUntilUp(const std::string& device) {
  constexpr int kAttempts = 2000;
  constexpr std::chrono::milliseconds kPause(10);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (Ip("link show dev " + device).at(0).at("operstate") == "UP") return;
    std::this_thread::sleep_for(kPause);
  }
  FAIL() << device << " does not come up";
}

nlohmann::json NetworkNamespaceTest::Ip(const std::string& arguments) {
  const std::string output = Output("ip -N -j -d " + arguments);
  return output.empty() ? nlohmann::json::array() : nlohmann::json::parse(output);
}
