/// What a connection and a server report to their observers; and the latencies.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "reference/hal/embedded_hal.h"
#include "tests/hal/observed.h"
#include "tests/server/test_server.h"
#include "tests/socket_client/reported.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

/// In a reinstall, sends a VLAN twice, the second time with other content, and a VRF; waits for the
/// ends.
std::vector<const void*> Converse(HalConnection* hal) {
  Reported reported;
  hal->Start(reported.Reports());
  reported.Await(1);
  hal->BeginReinstall();
  VrfEncapsulationMessage vrf;
  *vrf.encap() = Vrf(7);
  hal->InstallVrfIngressInterface(&vrf);
  VlanEncapsulationMessage vlan(std::make_unique<encapsulation::VlanMessage>(Vlan(5)));
  hal->InstallVlanOutgoingEncapsulation(&vlan);
  EXPECT_EQ(reported.Await(2).back(), "InstallVlan 5: 0");
  hal->EndReinstall();
  VlanEncapsulationMessage other(std::make_unique<encapsulation::VlanMessage>(Vlan(5, 9000)));
  hal->InstallVlanOutgoingEncapsulation(&other);
  EXPECT_EQ(reported.Await(3).back(), "InstallVlan 5: 3");
  EXPECT_TRUE(Eventually([hal] { return hal->counters().unfinished == 0; }));
  const std::vector<const AppMessage*> sent = {&vrf, &vlan, &other};
  return {sent.begin(), sent.end()};
}

// Without the events, whose texts are tested elsewhere.
std::vector<std::string> Traffic(const Observed& observed) {
  std::vector<std::string> lines;
  for (const std::string& line : observed.lines()) {
    if (line.rfind("event ", 0) != 0) lines.push_back(line);
  }
  return lines;
}

TEST(ObserverTest, SeesTheEmbeddedHal) {
  Observed observed;
  EmbeddedHal hal((EmbeddedHalOptions()));
  hal.Observe(&observed);
  EXPECT_EQ(observed.wrappers(), std::vector<const void*>());
  const auto sent = Converse(&hal);
  EXPECT_EQ(observed.wrappers(), sent);
  EXPECT_THAT(observed.lines(), ElementsAre("found", "begin", "#1 install-vrf 7",
                                            "#2 install-vlan 5", "#2 install-vlan 5: 0", "end",
                                            "#3 install-vlan 5", "#3 install-vlan 5: 3"));
}

TEST(ObserverTest, SeesTheClientAndTheServer) {
  Observed at_server;
  HalServerOptions server_options;
  server_options.observer = &at_server;
  TestServer server(server_options);

  Observed at_client;
  SocketHalOptions options;
  options.path = server.path();
  options.program = "observed program";
  {
    SocketHal hal(options);
    hal.Observe(&at_client);
    const auto sent = Converse(&hal);
    EXPECT_EQ(at_client.wrappers(), sent);
  }
  EXPECT_THAT(Traffic(at_client), ElementsAre("found", "begin", "#1 install-vrf 7",
                                              "#2 install-vlan 5", "#2 install-vlan 5: 0", "end",
                                              "#3 install-vlan 5", "#3 install-vlan 5: 3"));
  EXPECT_THAT(Traffic(at_server), ElementsAre("found", "begin", "#1 install-vrf 7",
                                              "#2 install-vlan 5", "#2 install-vlan 5: 0", "end",
                                              "#3 install-vlan 5", "#3 install-vlan 5: 3"));
  EXPECT_THAT(at_server.wrappers(), testing::Each(nullptr));
  EXPECT_THAT(at_client.lines().front(), StartsWith("event connected to HAL server zuskux-hal"));
  EXPECT_THAT(at_server.lines()[1], StartsWith("event client 1: \"observed program\""));
}

TEST(LatencyTest, OfTheEmbeddedHalHasNoWire) {
  EmbeddedHalOptions slow;
  slow.before_apply = [](const HalRequest&) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  };
  EmbeddedHal hal(slow);
  Converse(&hal);
  const HalLatencies latencies = hal.latencies();
  EXPECT_EQ(latencies.queue.count, 3U);
  EXPECT_EQ(latencies.wire.count, 0U);
  EXPECT_EQ(latencies.hal.count, 3U);
  EXPECT_GE(latencies.hal.p50, std::chrono::milliseconds(2));
}

// The HAL's own time is its delay; the wire takes the rest.
TEST(LatencyTest, OfTheSocketSeparatesTheHalFromTheWire) {
  TestServer server(R"(fault { what: "delay" ms: 20 times: 3 })");
  SocketHalOptions options;
  options.path = server.path();
  SocketHal hal(options);
  Reported reported;
  const auto start = std::chrono::steady_clock::now();
  hal.Start(reported.Reports());
  for (std::uint32_t id = 1; id <= 3; ++id) {
    InstallVlan(&hal, id);
    reported.Await(1 + id);
  }
  const auto whole = std::chrono::steady_clock::now() - start;
  const HalLatencies latencies = hal.latencies();
  EXPECT_EQ(latencies.queue.count, 3U);
  EXPECT_EQ(latencies.wire.count, 3U);
  EXPECT_EQ(latencies.hal.count, 3U);
  EXPECT_GE(latencies.hal.p50, std::chrono::milliseconds(20));
  EXPECT_LE(latencies.wire.max + 3 * std::chrono::milliseconds(20), whole);
}

}  // namespace
}  // namespace reference
