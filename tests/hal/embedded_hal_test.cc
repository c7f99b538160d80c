/// The embedded HAL: its threads, results, queue and restarts.

#include "reference/hal/embedded_hal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/hal/messages.h"
#include "tests/hal/recording_results.h"
#include "tests/hal/reported.h"
#include "tests/support/gate.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace reference {
namespace {

using testing::ElementsAre;

/// Blocks the server inside the request for one id.
class Hold {
 public:
  explicit Hold(std::uint32_t id) : id_(id) {}

  /// For `EmbeddedHalOptions::before_apply`.
  void operator()(const HalRequest& request) {
    if (request.id != id_) return;
    reached_.Open();
    released_.Pass();
  }

  void AwaitReached() { reached_.Pass(); }
  void Release() { released_.Open(); }

 private:
  const std::uint32_t id_;
  Gate reached_;
  Gate released_;
};

EmbeddedHalOptions Options(Hold* hold, std::size_t queue_capacity = 100) {
  EmbeddedHalOptions options;
  options.queue_capacity = queue_capacity;
  options.before_apply = [hold](const HalRequest& request) { (*hold)(request); };
  return options;
}

TEST(EmbeddedHalTest, ReportsTheServerFoundFirstAndThenWhatWaited) {
  Reported reported;
  EmbeddedHal hal({});
  EXPECT_EQ(InstallVlan(&hal, 5), kHalSuccess);
  EXPECT_EQ(hal.counters().queued, 1U);
  EXPECT_THAT(reported.events(), ElementsAre());
  hal.Start(reported.Reports());
  EXPECT_THAT(reported.Await(2), ElementsAre("found", "InstallVlan 5: 0"));
}

TEST(EmbeddedHalTest, ReportsOnOneThreadOfItsOwn) {
  Reported reported;
  EmbeddedHal hal({});
  hal.Start(reported.Reports());
  InstallVlan(&hal, 5);
  InstallVlan(&hal, 6);
  // `Reported` fails if another thread reports, too.
  EXPECT_EQ(reported.Await(3).size(), 3U);
  EXPECT_NE(reported.thread(), std::this_thread::get_id());
}

TEST(EmbeddedHalTest, SleepsWhileThereIsNothingToDo) {
  const auto processor_time = [] {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
  };
  Reported reported;
  EmbeddedHal hal({});
  hal.Start(reported.Reports());
  InstallVlan(&hal, 5);
  reported.Await(2);

  const auto before = processor_time();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LT(processor_time() - before, std::chrono::milliseconds(30));
}

// `Reported` fails if a report runs inside another.
TEST(EmbeddedHalTest, ReportsNothingInsideARequestThatIsSentInsideAReport) {
  Reported reported;
  EmbeddedHalOptions options;
  options.queue_capacity = 1;
  EmbeddedHal hal(options);
  reported.on_event = [&hal](const std::string& event) {
    if (event != "InstallVlan 1: 0") return;
    EXPECT_EQ(InstallVlan(&hal, 2), kHalSuccess);
    EXPECT_EQ(InstallVlan(&hal, 3), kHalQueueFull);
  };
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  EXPECT_THAT(reported.Await(4),
              ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 3: 101", "InstallVlan 2: 0"));
}

TEST(EmbeddedHalTest, VrfsHaveNoResult) {
  Reported reported;
  EmbeddedHal hal({});
  hal.Start(reported.Reports());
  EXPECT_EQ(InstallVrf(&hal, 1), kHalSuccess);
  InstallVlan(&hal, 5);
  EXPECT_THAT(reported.Await(2), ElementsAre("found", "InstallVlan 5: 0"));
  EXPECT_TRUE(hal.SnapshotTables().Contains(HalKind::kVrf, 1));
  EXPECT_EQ(hal.counters().requests, 2U);
  EXPECT_EQ(hal.counters().results, 1U);
}

TEST(EmbeddedHalTest, ReportsTheOutcomeOfEachVrfRequest) {
  Hold hold(1);
  Reported reported;
  EmbeddedHalOptions options = Options(&hold, 2);
  options.table_capacity = 1;
  EmbeddedHal hal(options);
  hal.Start(reported.AllReports());
  InstallVrf(&hal, 1);
  hold.AwaitReached();
  InstallVrf(&hal, 2);
  InstallVlan(&hal, 5);
  InstallVrf(&hal, 3);
  hold.Release();
  EXPECT_THAT(reported.Await(5), ElementsAre("found", "install-vrf 1: 0", "install-vrf 3: 101",
                                             "install-vrf 2: 5", "InstallVlan 5: 0"));
  EXPECT_EQ(hal.counters().results, 1U) << "only the VLAN has a result";
}

TEST(EmbeddedHalTest, ReportsTheEndOfAReinstall) {
  Reported reported;
  EmbeddedHal hal({});
  hal.Start(reported.AllReports());
  hal.BeginReinstall();
  InstallVlan(&hal, 5);
  hal.EndReinstall();
  EXPECT_THAT(reported.Await(3), ElementsAre("found", "InstallVlan 5: 0", "in sync"));
}

TEST(EmbeddedHalQueueTest, RefusedRequestsHaveOneResultEach) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold, 2));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  EXPECT_EQ(InstallVlan(&hal, 2), kHalSuccess);
  EXPECT_EQ(InstallVlan(&hal, 3), kHalSuccess);
  EXPECT_EQ(InstallVlan(&hal, 4), kHalQueueFull);
  EXPECT_EQ(InstallVlan(&hal, 5), kHalQueueFull);
  EXPECT_EQ(InstallVrf(&hal, 6), kHalQueueFull);
  EXPECT_EQ(hal.counters().queued, 2U);
  EXPECT_THAT(reported.events(), ElementsAre("found"));
  hold.Release();
  EXPECT_THAT(reported.Await(6),
              ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 4: 101", "InstallVlan 5: 101",
                          "InstallVlan 2: 0", "InstallVlan 3: 0"));
  EXPECT_EQ(hal.SnapshotTables().size(HalKind::kVlan), 3U);
  EXPECT_EQ(hal.SnapshotTables().size(HalKind::kVrf), 0U);
  const HalConnectionCounters counters = hal.counters();
  EXPECT_EQ(counters.requests, 6U);
  EXPECT_EQ(counters.results, 5U);
  EXPECT_EQ(counters.queued, 0U);
  EXPECT_EQ(counters.queued_peak, 2U);
}

TEST(EmbeddedHalQueueTest, ReportsRoomOnceHalfOfItIsFree) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold, 4));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  for (std::uint32_t id = 2; id <= 5; ++id) {
    EXPECT_TRUE(hal.HasRoom());
    InstallVlan(&hal, id);
  }
  EXPECT_FALSE(hal.HasRoom());
  EXPECT_FALSE(hal.HasRoom());
  hold.Release();
  EXPECT_THAT(reported.Await(7),
              ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 0", "InstallVlan 3: 0",
                          "room", "InstallVlan 4: 0", "InstallVlan 5: 0"));
  EXPECT_TRUE(hal.HasRoom());
}

TEST(EmbeddedHalQueueTest, ARestartMakesRoom) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold, 1));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  InstallVlan(&hal, 2);
  EXPECT_FALSE(hal.HasRoom());
  hal.Restart();
  EXPECT_TRUE(hal.HasRoom());
  hold.Release();
  EXPECT_THAT(reported.Await(5),
              ElementsAre("found", "InstallVlan 1: 100", "InstallVlan 2: 100", "found", "room"));
}

TEST(EmbeddedHalReinstallTest, KeepsItsPlaceAmongTheRequests) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  InstallVlan(&hal, 2);
  hal.BeginReinstall();
  InstallVlan(&hal, 2, 9000);
  hal.EndReinstall();
  InstallVlan(&hal, 3);
  InstallVlan(&hal, 2);
  hold.Release();
  EXPECT_THAT(reported.Await(6),
              ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 0", "InstallVlan 2: 0",
                          "InstallVlan 3: 0", "InstallVlan 2: 3"));
  EXPECT_THAT(hal.SnapshotTables().Entries(HalKind::kVlan),
              ElementsAre(std::pair(2U, Vlan(2, 9000).SerializeAsString()),
                          std::pair(3U, Vlan(3).SerializeAsString())));
}

TEST(EmbeddedHalReinstallTest, IsNotRefusedByAFullQueue) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold, 1));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  InstallVlan(&hal, 2);
  hal.BeginReinstall();
  hal.EndReinstall();
  // There is room for one once the queue is empty, so the report follows the end of the reinstall.
  EXPECT_FALSE(hal.HasRoom());
  hold.Release();
  EXPECT_THAT(reported.Await(4),
              ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 0", "room"));
  EXPECT_EQ(hal.SnapshotTables().size(HalKind::kVlan), 0U);
}

TEST(EmbeddedHalRestartTest, EndsOutstandingRequestsAndThenFindsTheServer) {
  Hold hold(2);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  InstallVlan(&hal, 2);
  hold.AwaitReached();
  InstallVlan(&hal, 3);
  InstallVrf(&hal, 3);
  InstallVlan(&hal, 4);
  hal.Restart();
  EXPECT_THAT(reported.events(), ElementsAre("found", "InstallVlan 1: 0"));
  hold.Release();
  EXPECT_THAT(reported.Await(6), ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 100",
                                             "InstallVlan 3: 100", "InstallVlan 4: 100", "found"));
  const HalConnectionCounters counters = hal.counters();
  EXPECT_EQ(counters.late_results, 1U) << "of VLAN 2";
  EXPECT_EQ(counters.servers_found, 2U);
  EXPECT_TRUE(counters.connected);
  EXPECT_EQ(counters.results, 4U);
  EXPECT_EQ(hal.SnapshotTables().size(HalKind::kVlan), 0U);
  EXPECT_EQ(hal.SnapshotTables().size(HalKind::kVrf), 0U);
}

TEST(EmbeddedHalRestartTest, AVrfIsNoLateResult) {
  Hold hold(7);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  hal.Start(reported.Reports());
  InstallVrf(&hal, 7);
  hold.AwaitReached();
  hal.Restart();
  hold.Release();
  EXPECT_THAT(reported.Await(2), ElementsAre("found", "found"));
  EXPECT_EQ(hal.counters().late_results, 0U);
}

TEST(EmbeddedHalRestartTest, EndsVrfRequestsAndReinstalls) {
  Hold hold(7);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  hal.Start(reported.AllReports());
  InstallVrf(&hal, 7);
  hold.AwaitReached();
  InstallVrf(&hal, 8);
  hal.EndReinstall();
  hal.Restart();
  hold.Release();
  InstallVrf(&hal, 9);
  EXPECT_THAT(reported.Await(5), ElementsAre("found", "install-vrf 7: 100", "install-vrf 8: 100",
                                             "found", "install-vrf 9: 0"));
}

TEST(EmbeddedHalRestartTest, LaterRequestsGoToTheNewServer) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  hal.Restart();
  InstallVlan(&hal, 2);
  hold.Release();
  EXPECT_THAT(reported.Await(4),
              ElementsAre("found", "InstallVlan 1: 100", "found", "InstallVlan 2: 0"));
  EXPECT_THAT(hal.SnapshotTables().Entries(HalKind::kVlan),
              ElementsAre(std::pair(2U, Vlan(2).SerializeAsString())));
}

TEST(EmbeddedHalRestartTest, RepeatedRestartsEndEachRequestOnce) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  InstallVlan(&hal, 2);
  hal.Restart();
  InstallVlan(&hal, 3);
  hal.Restart();
  hal.Restart();
  hold.Release();
  EXPECT_THAT(reported.Await(5), ElementsAre("found", "InstallVlan 1: 100", "InstallVlan 2: 100",
                                             "InstallVlan 3: 100", "found"));
  EXPECT_EQ(hal.counters().late_results, 1U);
}

TEST(EmbeddedHalRestartTest, RefusedRequestsKeepTheirCode) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold, 1));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  InstallVlan(&hal, 2);
  EXPECT_EQ(InstallVlan(&hal, 3), kHalQueueFull);
  hal.Restart();
  hold.Release();
  EXPECT_THAT(reported.Await(5), ElementsAre("found", "InstallVlan 1: 100", "InstallVlan 3: 101",
                                             "InstallVlan 2: 100", "found"));
}

TEST(EmbeddedHalRestartTest, ForgetsTheReinstall) {
  Hold hold(2);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  hal.Start(reported.Reports());
  hal.BeginReinstall();
  InstallVlan(&hal, 2);
  hold.AwaitReached();
  hal.BeginReinstall();
  hal.Restart();
  hold.Release();
  InstallVlan(&hal, 5);
  InstallVlan(&hal, 5, 9000);
  EXPECT_THAT(reported.Await(5), ElementsAre("found", "InstallVlan 2: 100", "found",
                                             "InstallVlan 5: 0", "InstallVlan 5: 3"));
}

TEST(EmbeddedHalRestartTest, InsideAResult) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  reported.on_event = [&hal](const std::string& event) {
    if (event == "InstallVlan 1: 0") hal.Restart();
  };
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  InstallVlan(&hal, 2);
  hold.Release();
  EXPECT_THAT(reported.Await(4),
              ElementsAre("found", "InstallVlan 1: 0", "InstallVlan 2: 100", "found"));
  EXPECT_EQ(hal.counters().late_results, 0U);
}

// The first restart's server is lost before it is reported; requests sent to it end first.
TEST(EmbeddedHalRestartTest, InsideTheResultOfALostRequest) {
  Hold hold(1);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  reported.on_event = [&hal](const std::string& event) {
    if (event != "InstallVlan 2: 100") return;
    hal.Restart();
    InstallVlan(&hal, 4);
  };
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  hold.AwaitReached();
  InstallVlan(&hal, 2);
  hal.Restart();
  EXPECT_EQ(hal.counters().unfinished, 2U);
  InstallVlan(&hal, 3);
  hold.Release();
  EXPECT_THAT(reported.Await(6), ElementsAre("found", "InstallVlan 1: 100", "InstallVlan 2: 100",
                                             "InstallVlan 3: 100", "found", "InstallVlan 4: 0"));
  EXPECT_EQ(hal.counters().servers_found, 2U);
}

TEST(EmbeddedHalRestartTest, InsideTheReportOfTheServerFound) {
  Reported reported;
  EmbeddedHal hal({});
  int restarts = 0;
  reported.on_event = [&hal, &restarts](const std::string& event) {
    if (event == "found" && ++restarts <= 2) hal.Restart();
  };
  InstallVlan(&hal, 1);
  hal.Start(reported.Reports());
  EXPECT_THAT(reported.Await(4), ElementsAre("found", "InstallVlan 1: 100", "found", "found"));
}

TEST(EmbeddedHalRestartTest, BeforeTheStart) {
  Reported reported;
  EmbeddedHal hal({});
  InstallVlan(&hal, 1);
  hal.Restart();
  InstallVlan(&hal, 2);
  hal.Start(reported.Reports());
  EXPECT_THAT(reported.Await(3), ElementsAre("InstallVlan 1: 100", "found", "InstallVlan 2: 0"));
}

// The server takes a 64th of the queue at a time. The tests fill the queue before the server
// starts, so that it takes as much as it can.

TEST(EmbeddedHalBatchTest, WaitsInTheQueue) {
  constexpr std::uint32_t kCapacity = 192;
  Hold hold(2);
  Reported reported;
  EmbeddedHal hal(Options(&hold, kCapacity));
  for (std::uint32_t id = 1; id <= kCapacity; ++id) InstallVlan(&hal, id);
  hal.Start(reported.Reports());
  hold.AwaitReached();
  EXPECT_EQ(hal.counters().queued, kCapacity - 2);
  EXPECT_EQ(hal.counters().unfinished, kCapacity - 1);
  EXPECT_EQ(hal.counters().results, 1U);
  EXPECT_EQ(hal.latencies().hal.count, 1U);
  EXPECT_TRUE(hal.HasRoom());
  EXPECT_EQ(InstallVlan(&hal, kCapacity + 1), kHalSuccess);
  EXPECT_TRUE(hal.HasRoom());
  EXPECT_EQ(InstallVlan(&hal, kCapacity + 2), kHalSuccess);
  EXPECT_FALSE(hal.HasRoom());
  EXPECT_EQ(InstallVlan(&hal, kCapacity + 3), kHalQueueFull);
  EXPECT_EQ(hal.counters().queued, kCapacity);
  EXPECT_EQ(hal.counters().queued_peak, kCapacity);
  hold.Release();
  // The first report that the server is found, a result for each request, and the room.
  EXPECT_EQ(reported.Await(kCapacity + 5).size(), kCapacity + 5);
  EXPECT_EQ(hal.SnapshotTables().size(HalKind::kVlan), kCapacity + 2);
}

TEST(EmbeddedHalBatchTest, EndsWithTheServerThatTookIt) {
  Hold hold(1);
  Reported reported;
  std::vector<std::uint32_t> begun;
  EmbeddedHalOptions options;
  options.queue_capacity = 256;
  options.before_apply = [&hold, &begun](const HalRequest& request) {
    begun.push_back(request.id);
    hold(request);
  };
  EmbeddedHal hal(options);
  InstallVlan(&hal, 1);
  InstallVlan(&hal, 2);
  hal.EndReinstall();
  InstallVrf(&hal, 3);
  InstallVlan(&hal, 4);
  hal.Start(reported.AllReports());
  hold.AwaitReached();
  EXPECT_EQ(hal.counters().queued, 4U);
  EXPECT_EQ(hal.counters().unfinished, 5U);
  hal.Restart();
  EXPECT_EQ(hal.counters().queued, 0U);
  EXPECT_EQ(hal.counters().unfinished, 5U);
  InstallVlan(&hal, 5);
  EXPECT_EQ(hal.counters().queued, 1U);
  hold.Release();
  EXPECT_THAT(reported.Await(7),
              ElementsAre("found", "InstallVlan 1: 100", "InstallVlan 2: 100", "install-vrf 3: 100",
                          "InstallVlan 4: 100", "found", "InstallVlan 5: 0"));
  EXPECT_THAT(begun, ElementsAre(1, 5));
  EXPECT_EQ(hal.counters().late_results, 1U) << "of VLAN 1";
  EXPECT_EQ(hal.counters().results, 4U);
}

TEST(EmbeddedHalBatchTest, IsDroppedAtTheEnd) {
  Reported reported;
  std::vector<std::uint32_t> begun;
  Hold hold(1);
  EmbeddedHalOptions options;
  options.queue_capacity = 256;
  options.before_apply = [&hold, &begun](const HalRequest& request) {
    begun.push_back(request.id);
    hold(request);
  };
  auto hal = std::make_unique<EmbeddedHal>(options);
  for (std::uint32_t id = 1; id <= 4; ++id) InstallVlan(hal.get(), id);
  hal->Start(reported.Reports());
  hold.AwaitReached();
  std::thread releaser([&hold] {
    // The destructor is nearly always first. If not, more requests have results.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    hold.Release();
  });
  hal.reset();
  releaser.join();
  // Found, and a result of each request but the last.
  EXPECT_GE(reported.events().size(), begun.size());
}

class EmbeddedHalManyRestartsTest : public testing::TestWithParam<std::minstd_rand::result_type> {};

INSTANTIATE_TEST_SUITE_P(Seeds, EmbeddedHalManyRestartsTest, testing::Values(1, 2, 3));

TEST_P(EmbeddedHalManyRestartsTest, LeaveOneResultForEachRequest) {
  constexpr std::uint32_t kRequests = 2000;
  constexpr std::uint64_t kRestarts = 50;
  Gate all_ended;
  std::map<std::string, int> results_by_request;
  int results = 0;
  Reported reported;
  reported.on_event = [&](const std::string& event) {
    const auto colon = event.find(':');
    if (colon == std::string::npos) return;
    ++results_by_request[event.substr(0, colon)];
    if (++results == kRequests) all_ended.Open();
  };
  EmbeddedHalOptions options;
  options.queue_capacity = 64;
  auto hal = std::make_unique<EmbeddedHal>(options);
  hal->Start(reported.Reports());

  std::thread restarter([&hal, &reported] {
    std::minstd_rand random(GetParam());
    // Bounds the restarts by the reports: at most 40 for each.
    std::size_t events = 0;
    for (std::uint64_t restart = 0; restart < kRestarts; ++restart) {
      events += std::uniform_int_distribution<std::size_t>(1, 40)(random);
      reported.Await(events);
      hal->Restart();
    }
  });
  std::minstd_rand random(GetParam() + 1000);
  for (std::uint32_t id = 1; id <= kRequests; ++id) {
    InstallVlan(hal.get(), id);
    if (random() % 8 == 0) std::this_thread::yield();
  }
  all_ended.Pass();
  restarter.join();
  const HalConnectionCounters counters = hal->counters();
  hal.reset();

  EXPECT_EQ(counters.requests, kRequests);
  EXPECT_EQ(counters.results, kRequests);
  EXPECT_LE(counters.late_results, kRestarts);
  EXPECT_LE(counters.servers_found, kRestarts + 1);
  EXPECT_EQ(results_by_request.size(), kRequests);
  EXPECT_THAT(results_by_request, testing::Each(testing::Pair(testing::_, 1)));
}

TEST(EmbeddedHalSnapshotTest, IsTakenBetweenTwoRequests) {
  Hold hold(2);
  Reported reported;
  EmbeddedHal hal(Options(&hold));
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  InstallVlan(&hal, 2);
  hold.AwaitReached();
  const HalTables snapshot = hal.SnapshotTables();
  hold.Release();
  ASSERT_EQ(reported.Await(3).size(), 3U);
  EXPECT_THAT(snapshot.Entries(HalKind::kVlan),
              ElementsAre(std::pair(1U, Vlan(1).SerializeAsString())));
  EXPECT_EQ(hal.SnapshotTables().size(HalKind::kVlan), 2U);
}

TEST(EmbeddedHalSnapshotTest, IsTakenInsideAReport) {
  Reported reported;
  EmbeddedHal hal({});
  std::size_t vlans = 0;
  reported.on_event = [&hal, &vlans](const std::string& event) {
    if (event == "InstallVlan 1: 0") vlans = hal.SnapshotTables().size(HalKind::kVlan);
  };
  hal.Start(reported.Reports());
  InstallVlan(&hal, 1);
  InstallVlan(&hal, 2);
  ASSERT_EQ(reported.Await(3).size(), 3U);
  EXPECT_EQ(vlans, 1U);
}

TEST(EmbeddedHalEndTest, DropsWhatWaits) {
  Reported reported;
  {
    EmbeddedHal hal({});
    InstallVlan(&hal, 1);
  }
  EXPECT_THAT(reported.events(), ElementsAre());
}

TEST(EmbeddedHalEndTest, ThreadHasEndedWhenTheDestructorReturns) {
  struct AtThreadExit {
    std::atomic<bool>* exited = nullptr;
    ~AtThreadExit() {
      if (exited != nullptr) *exited = true;
    }
  };
  std::atomic<bool> exited = false;
  Hold hold(1);
  Reported reported;
  reported.on_event = [&exited](const std::string& /*event*/) {
    thread_local AtThreadExit at_thread_exit;
    at_thread_exit.exited = &exited;
  };
  auto hal = std::make_unique<EmbeddedHal>(Options(&hold));
  hal->Start(reported.Reports());
  for (std::uint32_t id = 1; id <= 50; ++id) InstallVlan(hal.get(), id);
  hold.AwaitReached();
  std::thread releaser([&hold] { hold.Release(); });
  hal.reset();
  EXPECT_TRUE(exited);
  releaser.join();
}

}  // namespace
}  // namespace reference
