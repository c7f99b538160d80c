/// The HAL client against the HAL server, and against one that misbehaves.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "reference/server/hal_server.h"
#include "reference/server/server_faults.h"
#include "tests/socket_client/fake_server.h"
#include "tests/socket_client/reported.h"
#include "tests/support/allocations.h"

namespace reference {
namespace {

using std::chrono::milliseconds;

/// A server on its own thread.
class RunningServer {
 public:
  explicit RunningServer(const std::string& path, ServerFaults* faults = nullptr) {
    std::promise<void> listening;
    thread_ = std::thread([this, &listening, path, faults] {
      HalServerOptions options;
      options.path = path;
      options.faults = faults;
      const HalServer server(&io_, options);
      const auto work = boost::asio::make_work_guard(io_);
      listening.set_value();
      io_.run();
    });
    listening.get_future().get();
  }
  RunningServer(const RunningServer&) = delete;
  RunningServer& operator=(const RunningServer&) = delete;
  ~RunningServer() {
    io_.stop();
    thread_.join();
  }

 private:
  boost::asio::io_context io_;
  std::thread thread_;
};

SocketHalOptions Options(const SocketFolder& folder) {
  SocketHalOptions options;
  options.path = folder.path();
  options.reconnect_first = milliseconds(1);
  options.reconnect_last = milliseconds(1);
  return options;
}

/// Counts the results of each VLAN.
class CountedResults {
 public:
  CountedResults()
      : results_([this](const Result& result) {
          const std::lock_guard lock(mutex_);
          ++counts_[result.id];
          ++total_;
          if (result.code != 0) lost = true;
          changed_.notify_all();
        }) {}

  HalReports Reports() {
    return {&results_,
            [this] {
              ++found;
              found_once_.Open();
            },
            {}};
  }

  void AwaitFound() { found_once_.Pass(); }

  bool Await(std::uint64_t total) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [this, total] { return total_ >= total; });
  }

  std::map<std::uint32_t, int> counts() {
    const std::lock_guard lock(mutex_);
    return counts_;
  }

  std::uint64_t total() {
    const std::lock_guard lock(mutex_);
    return total_;
  }

  std::atomic<int> found = 0;
  /// Whether any result was a failure; every VLAN is new.
  std::atomic<bool> lost = false;

 private:
  RecordingResults results_;
  Gate found_once_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::uint32_t, int> counts_;
  std::uint64_t total_ = 0;
};

/// Ends connections and servers, duplicates results and invents some, at random.
class RandomFaults : public ServerFaults {
 public:
  ConnectionFate OnAccept() override {
    ConnectionFate fate;
    if (random_() % 8 == 0) fate.entry = ConnectionFate::Entry::kClose;
    return fate;
  }

  RequestFate OnRequest(const HalRequest& /*request*/, const HalTables& /*tables*/) override {
    RequestFate fate;
    switch (random_() % 1000) {
      case 0:
        fate.end = RequestFate::End::kCloseBefore;
        break;
      case 1:
        fate.end = RequestFate::End::kCloseAfter;
        break;
      case 2:
        fate.end = RequestFate::End::kCrashAfter;
        break;
      case 3:
        fate.cut = 5;
        break;
      case 4:
        fate.copies = 2;
        break;
      case 5:
        fate.stray = true;
        break;
      default:
        break;
    }
    return fate;
  }

  void OnBeginReinstall() override {}
  Time OnEndReinstall() override { return {}; }
  void Crash() override {}

 private:
  std::minstd_rand random_{5};
};

TEST(PromiseOneResult, WithRandomDisconnects) {
  constexpr std::uint32_t kRounds = 200;
  constexpr std::uint32_t kRequests = 1000;
  const SocketFolder folder;
  RandomFaults faults;
  const RunningServer server(folder.path(), &faults);
  CountedResults results;
  SocketHal hal(Options(folder));
  hal.Start(results.Reports());
  results.AwaitFound();
  for (std::uint32_t round = 0; round < kRounds; ++round) {
    const int found = results.found;
    results.lost = false;
    for (std::uint32_t id = 1; id <= kRequests; ++id) {
      InstallVlan(&hal, round * kRequests + id);
      if (id % 100 == 0) InstallVrf(&hal, id);
    }
    ASSERT_TRUE(results.Await(std::uint64_t{round + 1} * kRequests)) << "in round " << round;
    // So that the next round has a server.
    ASSERT_TRUE(Eventually([&] { return !results.lost || results.found > found; }));
  }
  const auto counts = results.counts();
  EXPECT_EQ(counts.size(), kRounds * kRequests);
  EXPECT_TRUE(std::all_of(counts.begin(), counts.end(),
                          [](const auto& count) { return count.second == 1; }));
  EXPECT_GT(results.found, 100) << "connections ended";
  EXPECT_GT(hal.counters().late_results, 0U);
  EXPECT_EQ(hal.counters().results, kRounds * kRequests);
}

TEST(PromiseOneResult, WhenTheServerIsRestarted) {
  constexpr std::uint32_t kRestarts = 20;
  constexpr std::uint32_t kRequests = 500;
  const SocketFolder folder;
  auto server = std::make_unique<RunningServer>(folder.path());
  CountedResults results;
  SocketHal hal(Options(folder));
  hal.Start(results.Reports());
  results.AwaitFound();
  for (std::uint32_t restart = 0; restart < kRestarts; ++restart) {
    for (std::uint32_t id = 1; id <= kRequests; ++id) {
      InstallVlan(&hal, restart * kRequests + id);
      if (id == kRequests / 2) server.reset();
    }
    ASSERT_TRUE(results.Await(std::uint64_t{restart + 1} * kRequests));
    const int found = results.found;
    server = std::make_unique<RunningServer>(folder.path());
    ASSERT_TRUE(Eventually([&] { return results.found > found; }));
  }
  const auto counts = results.counts();
  EXPECT_EQ(counts.size(), kRestarts * kRequests);
  EXPECT_TRUE(std::all_of(counts.begin(), counts.end(),
                          [](const auto& count) { return count.second == 1; }));
  EXPECT_EQ(results.found, static_cast<int>(kRestarts) + 1);
}

// Neither on the connection's thread nor on the sending one.
TEST(PromiseBounded, NothingIsAllocatedForARequest) {
  constexpr std::uint32_t kBatch = 100;
  const SocketFolder folder;
  const RunningServer server(folder.path());
  std::atomic<std::uint32_t> answered = 0;
  std::atomic<std::size_t> allocations = 0;
  RecordingResults results([&](const Result& /*result*/) {
    allocations = testing_support::AllocationCount();
    ++answered;
  });
  Gate found;
  SocketHal hal(Options(folder));
  hal.Start({&results, [&found] { found.Open(); }, {}});
  found.Pass();
  auto vlan = std::make_unique<encapsulation::VlanMessage>();
  vlan->set_vlan_destination_id(7);
  // Longer than what a string holds without an allocation.
  vlan->set_source_mac_address(std::string(50, 'm'));
  VlanEncapsulationMessage message(std::move(vlan));
  std::size_t allocations_before = 0;
  std::size_t sent_before = 0;
  for (std::uint32_t batch = 1; batch <= 40; ++batch) {
    for (std::uint32_t i = 0; i < kBatch; ++i) hal.InstallVlanOutgoingEncapsulation(&message);
    ASSERT_TRUE(Eventually([&] { return answered == batch * kBatch; }));
    if (batch != 20) continue;
    allocations_before = allocations;
    sent_before = testing_support::AllocationCount();
  }
  EXPECT_GT(allocations_before, 0U);
  EXPECT_LE(allocations - allocations_before, 20U) << "for 2000 answers";
  EXPECT_LE(testing_support::AllocationCount() - sent_before, 20U) << "for 2000 requests";
}

TEST(PromiseNoReportAfterTheEnd, WithResultsInFlight) {
  const SocketFolder folder;
  const RunningServer server(folder.path());
  std::minstd_rand random(3);
  std::uint64_t unanswered = 0;
  for (int round = 0; round < 200; ++round) {
    CountedResults results;
    auto hal = std::make_unique<SocketHal>(Options(folder));
    hal->Start(results.Reports());
    results.AwaitFound();
    for (std::uint32_t id = 1; id <= 100; ++id) InstallVlan(hal.get(), id);
    results.Await(random() % 100);
    hal.reset();
    const std::uint64_t total = results.total();
    unanswered += 100 - total;
    std::this_thread::yield();
    EXPECT_EQ(results.total(), total);
    // A later report would use objects that are destroyed here.
  }
  EXPECT_GT(unanswered, 0U) << "no result was in flight";
}

TEST(SocketHalTest, ReinstallsARealServer) {
  const SocketFolder folder;
  const RunningServer server(folder.path());
  Record log;
  Reported reported;
  SocketHalOptions options = Options(folder);
  options.log = [&log](LogLevel, const std::string& line) { log.Add(line); };
  SocketHal hal(options);
  hal.Start(reported.Reports());
  reported.Await(1);
  InstallVlan(&hal, 1);
  InstallVlan(&hal, 2);
  hal.BeginReinstall();
  InstallVrf(&hal, 7);
  InstallVlan(&hal, 2, 9000);
  InstallVlan(&hal, 3);
  InstallVlan(&hal, 4);
  DestroyVlan(&hal, 4);
  hal.EndReinstall();
  EXPECT_THAT(log.AwaitStart("in sync"),
              testing::MatchesRegex("in sync after [0-9]+ ms: vrf 1, vlan 2, host 0, ecmp 0, "
                                    "mpls 0 \\(1 removed\\)"));
  EXPECT_EQ(reported.events().size(), 7U);
  EXPECT_EQ(hal.counters().late_results, 0U);
}

TEST(SocketHalTest, ManyRequestsInAFullQueue) {
  constexpr std::uint32_t kRequests = 20'000;
  const SocketFolder folder;
  const RunningServer server(folder.path());
  CountedResults results;
  SocketHalOptions options = Options(folder);
  options.queue_entries = 256;
  Record room;
  HalReports reports = results.Reports();
  std::mutex mutex;
  std::condition_variable changed;
  std::uint64_t rooms = 0;
  reports.room = [&] {
    const std::lock_guard lock(mutex);
    ++rooms;
    changed.notify_all();
  };
  SocketHal hal(options);
  hal.Start(reports);
  results.AwaitFound();
  std::uint64_t waited = 0;
  for (std::uint32_t id = 1; id <= kRequests; ++id) {
    if (!hal.HasRoom()) {
      ++waited;
      std::unique_lock lock(mutex);
      ASSERT_TRUE(changed.wait_for(lock, kPatience, [&] { return rooms == waited; }));
    }
    ASSERT_EQ(InstallVlan(&hal, id), kHalSuccess);
  }
  ASSERT_TRUE(results.Await(kRequests));
  EXPECT_LE(hal.statistics().wake_ups, kRequests);
  EXPECT_EQ(hal.latencies().hal.count, kRequests);
  EXPECT_LE(hal.counters().queued_peak, 256U);
}

}  // namespace
}  // namespace reference
