// The manager with a server that misbehaves in every way that a fault file can describe. The client
// promises that every request ends in exactly one result (OneResult). It also promises that, once
// the server works again, the server holds what it would hold without the fault: nothing missing,
// stale or duplicated (SameTables).

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "reference/site/generate_site.h"
#include "tests/manager/socket_system.h"
#include "tests/server/test_server.h"

namespace reference {
namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t kSeed = 3;
constexpr std::size_t kObjects = 120;

/// Counts the results of each request.
class ResultCounter : public RequestObserver {
 public:
  std::uint64_t Request(const HalRequest& request, const void* /*wrapper*/) override {
    const std::lock_guard lock(mutex_);
    ++requests_;
    if (HasResult(request.operation)) results_[requests_] = 0;
    return requests_;
  }
  void Result(std::uint64_t number, const HalRequest& /*request*/, HalReturnCode /*code*/,
              std::string_view /*reason*/) override {
    const std::lock_guard lock(mutex_);
    ++results_[number];
  }
  void BeginReinstall() override {}
  void EndReinstall() override {}
  void ObjectStateChanged(const HalObjectState& /*state*/) override {}
  void ServerFound() override {}
  void Event(std::string_view /*line*/) override {}

  void ExpectOneEach() const {
    const std::lock_guard lock(mutex_);
    EXPECT_FALSE(results_.empty());
    for (const auto& [number, count] : results_) EXPECT_EQ(count, 1) << "request " << number;
  }

 private:
  mutable std::mutex mutex_;
  std::uint64_t requests_ = 0;
  std::map<std::uint64_t, int> results_;
};

SocketHalOptions Options(const std::string& socket) {
  SocketHalOptions options = SocketSystem::OptionsFor(socket);
  options.deadline = milliseconds(1000);
  options.heartbeat = milliseconds(40);
  return options;
}

TableEntries UndisturbedTables() {
  TestServer server;
  SocketSystem system(server.path(), nullptr);
  system.Start(GenerateSite(kSeed, kObjects));
  return system.Settle([] { return true; });
}

struct FaultCase {
  const char* name;
  const char* faults;
};

class FaultyServerTest : public testing::TestWithParam<FaultCase> {};

INSTANTIATE_TEST_SUITE_P(
    Faults, FaultyServerTest,
    testing::Values(FaultCase{"Refuse", R"(fault { what: "refuse" times: 3 })"},
                    FaultCase{"CloseOnAccept", R"(fault { what: "close-on-accept" times: 3 })"},
                    FaultCase{"OneByteWrites", R"(fault { what: "one-byte-writes" times: 100 })"},
                    FaultCase{"CloseBefore", R"(fault { what: "close-before" nth: 50 })"},
                    FaultCase{"CloseAfter", R"(fault { what: "close-after" nth: 50 })"},
                    FaultCase{"CrashBefore", R"(fault { what: "crash-before" nth: 50 })"},
                    FaultCase{"CrashAfter", R"(fault { what: "crash-after" nth: 50 })"},
                    FaultCase{"CrashInAReinstall",
                              R"(fault { what: "crash-after" in_reinstall: true nth: 9 })"},
                    FaultCase{"CrashTwiceInARow",
                              R"(fault { what: "crash-before" in_reinstall: true nth: 9 times: 1 }
                     fault { what: "crash-before" in_reinstall: true nth: 3 times: 1 })"},
                    FaultCase{"CutInHeader", R"(fault { what: "cut-in-header" nth: 30 })"},
                    FaultCase{"CutInBody", R"(fault { what: "cut-in-body" nth: 30 })"},
                    FaultCase{"Delay", R"(fault { what: "delay" ms: 20 nth: 10 times: 20 })"},
                    FaultCase{"DelayBeyondTheDeadline",
                              R"(fault { what: "delay" of: "host" ms: 1300 nth: 5 times: 3 })"},
                    FaultCase{"Reorder", R"(fault { what: "reorder" window: 8 ms: 10 times: 40 })"},
                    FaultCase{"Duplicate", R"(fault { what: "duplicate" nth: 5 times: 20 })"},
                    FaultCase{"Swallow", R"(fault { what: "swallow" of: "host" nth: 5 times: 3 })"},
                    FaultCase{"Stray", R"(fault { what: "stray" nth: 5 times: 20 })"},
                    FaultCase{"Pause", R"(fault { what: "pause" ms: 100 nth: 20 })"},
                    FaultCase{"Stall", R"(fault { what: "stall" ms: 100 nth: 20 })"},
                    FaultCase{"StallBeyondTheHeartbeats",
                              R"(fault { what: "stall" ms: 500 nth: 20 })"},
                    FaultCase{"AllAtOnce", R"(seed: 5
                     fault { what: "duplicate" one_in: 10 }
                     fault { what: "stray" one_in: 10 }
                     fault { what: "delay" ms: 5 one_in: 10 times: 50 }
                     fault { what: "close-after" nth: 60 }
                     fault { what: "crash-before" nth: 150 }
                     fault { what: "cut-in-body" nth: 200 })"}),
    [](const auto& test) { return test.param.name; });

TEST_P(FaultyServerTest, SameTablesAndOneResult) {
  const TableEntries expected = UndisturbedTables();
  ASSERT_FALSE(expected.empty());
  TestServer server(std::string(GetParam().faults));
  ResultCounter counter;
  SocketSystem system(Options(server.path()), &counter);
  system.Start(GenerateSite(kSeed, kObjects));
  const TableEntries tables = system.Settle([] { return true; });
  EXPECT_EQ(tables.size(), expected.size());
  EXPECT_TRUE(tables == expected);
  EXPECT_TRUE(system.complete());
  EXPECT_FALSE(server.FaultLines().empty());
  counter.ExpectOneEach();
}

class AnswerTest : public testing::TestWithParam<std::uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Codes, AnswerTest, testing::Range(0U, 13U));
// The client's own codes, and an unknown one.
INSTANTIATE_TEST_SUITE_P(ClientCodes, AnswerTest, testing::Range(99U, 106U));
INSTANTIATE_TEST_SUITE_P(LastCode, AnswerTest, testing::Values(0xFFFFFFFFU));

// Whatever the code, the manager finishes, and its report is true: complete if and only if the
// tables are complete.
TEST_P(AnswerTest, OneResultAndATrueReport) {
  const TableEntries expected = UndisturbedTables();
  TestServer server(
      "fault { what: \"answer\" of: \"host\" nth: 5 code: " + std::to_string(GetParam()) + " }");
  ResultCounter counter;
  SocketSystem system(Options(server.path()), &counter);
  system.Start(GenerateSite(kSeed, kObjects));
  const TableEntries tables = system.Settle([] { return true; });
  // Only the comparison of the tables can reveal the fault's false success; it makes the manager
  // reinstall.
  EXPECT_EQ(system.complete(), tables == expected);
  counter.ExpectOneEach();
}

// Only the end of the reinstall reveals the loss; the reinstall is then repeated.
TEST_P(AnswerTest, AVrfIsNotLost) {
  const TableEntries expected = UndisturbedTables();
  TestServer server("fault { what: \"answer\" of: \"vrf\" code: " + std::to_string(GetParam()) +
                    " }");
  ResultCounter counter;
  SocketSystem system(Options(server.path()), &counter);
  system.Start(GenerateSite(kSeed, kObjects));
  EXPECT_TRUE(system.Settle([] { return true; }) == expected);
  EXPECT_EQ(server.FaultLines().size(), 1U);
  counter.ExpectOneEach();
}

TEST(TableFullTest, OneResultAndATrueReport) {
  TestServer server(R"(fault { what: "table-full" of: "host" entries: 10 times: 1000 })");
  ResultCounter counter;
  SocketSystem system(Options(server.path()), &counter);
  system.Start(GenerateSite(kSeed, kObjects));
  system.Settle([] { return true; });
  EXPECT_FALSE(system.complete());
  EXPECT_EQ(server.Tables().size(HalKind::kHost), 10U);
  counter.ExpectOneEach();
}

TEST(SlowReadsTest, SameTablesAndOneResult) {
  const Site site = GenerateSite(kSeed, 6);
  TableEntries expected;
  {
    TestServer server;
    SocketSystem system(server.path(), nullptr);
    system.Start(site);
    expected = system.Settle([] { return true; });
  }
  TestServer server(R"(fault { what: "slow-reads" bytes_per_second: 1000 })");
  ResultCounter counter;
  SocketHalOptions options = Options(server.path());
  options.deadline = std::chrono::seconds(30);
  options.heartbeat = std::chrono::seconds(1);
  SocketSystem system(options, &counter);
  system.Start(site);
  EXPECT_TRUE(system.Settle([] { return true; }) == expected);
  EXPECT_EQ(system.hal().counters().servers_found, 1U) << "slow, not dead";
  counter.ExpectOneEach();
}

// A paused server is not dead: it answers heartbeats.
TEST(PauseTest, ASlowServerIsNotMistakenForADeadOne) {
  TestServer server(R"(fault { what: "pause" ms: 1500 nth: 20 })");
  SocketHalOptions options = Options(server.path());
  // The silence exceeds the limit for a dead server.
  options.heartbeat = milliseconds(200);
  options.deadline = std::chrono::seconds(30);
  SocketSystem system(options, nullptr);
  system.Start(GenerateSite(kSeed, kObjects));
  system.Settle([] { return true; });
  EXPECT_TRUE(system.complete());
  EXPECT_EQ(system.hal().counters().servers_found, 1U);
}

// The manager keeps what a full queue refused and sends it once there is room.
TEST(FullQueueTest, NoObjectIsLost) {
  const TableEntries expected = UndisturbedTables();
  TestServer server;
  ResultCounter counter;
  SocketHalOptions options = Options(server.path());
  options.queue_entries = 2;
  SocketSystem system(options, &counter);
  system.Start(GenerateSite(kSeed, kObjects));
  EXPECT_TRUE(system.Settle([] { return true; }) == expected);
  EXPECT_LE(system.hal().counters().queued_peak, 4U) << "two requests and two marks";
  counter.ExpectOneEach();
}

// Without an answer, a VRF request ends at its deadline, and the manager sends it again.
TEST(LostVrfTest, NoObjectIsLost) {
  const TableEntries expected = UndisturbedTables();
  TestServer server(R"(fault { what: "swallow" of: "vrf" })");
  ResultCounter counter;
  SocketHalOptions options = Options(server.path());
  options.queue_entries = 16;
  SocketSystem system(options, &counter);
  system.Start(GenerateSite(kSeed, kObjects));
  EXPECT_TRUE(system.Settle([] { return true; }) == expected);
  EXPECT_TRUE(system.complete());
  EXPECT_EQ(system.hal().counters().servers_found, 1U);
  counter.ExpectOneEach();
}

// The manager finishes, although the queue is smaller than the number of requests in doubt.
TEST(SilentServerTest, FailsEverything) {
  TestServer server(R"(fault { what: "swallow" times: 1000000 })");
  ResultCounter counter;
  SocketHalOptions options = Options(server.path());
  options.queue_entries = 16;
  options.deadline = milliseconds(20);
  SocketSystem system(options, &counter);
  system.Start(GenerateSite(kSeed, kObjects));
  EXPECT_TRUE(system.Finish());
  EXPECT_FALSE(system.complete());
  EXPECT_EQ(Summary(system.database()).text(), "120 objects: 120 failed");
  counter.ExpectOneEach();
}

// Destroys connection and manager while results arrive, at a different moment each time.
TEST(ManagerEndTest, WithResultsInFlight) {
  TestServer server;
  const Site site = GenerateSite(kSeed, 60);
  constexpr int kRounds = 1000;
  int in_flight = 0;
  for (int round = 0; round < kRounds; ++round) {
    const auto results_wanted = static_cast<std::uint64_t>(round % 50);
    bool enough = false;
    SocketSystem system(server.path(), nullptr,
                        [&](std::uint64_t results) { enough = results >= results_wanted; });
    system.Start(site);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!enough && std::chrono::steady_clock::now() < end) system.RunFor(milliseconds(1));
    if (system.hal().counters().unfinished != 0) ++in_flight;
  }
  EXPECT_GT(in_flight, 0) << "no result was in flight";
}

}  // namespace
}  // namespace reference
