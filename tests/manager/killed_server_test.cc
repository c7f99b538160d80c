// The server is killed at any time. In the end, its tables equal those of an undisturbed run:
// nothing missing, stale or duplicated.
//
// With ZUSKUX_LONG_TESTS=1 in the environment, each test takes its long form: every frame instead
// of a few, and 10,000 objects.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "reference/site/generate_site.h"
#include "tests/manager/kept_server.h"
#include "tests/manager/process.h"
#include "tests/manager/socket_system.h"

namespace reference {
namespace {

constexpr std::uint32_t kSeed = 7;
constexpr std::size_t kScriptObjects = 200;

bool LongTests() { return std::getenv("ZUSKUX_LONG_TESTS") != nullptr; }

/// Calls a function at the nth frame passed to the connection, counting marks.
class AtFrame : public RequestObserver {
 public:
  AtFrame(std::uint64_t nth, std::function<void()> function)
      : nth_(nth), function_(std::move(function)) {}

  std::uint64_t Request(const HalRequest& /*request*/, const void* /*wrapper*/) override {
    Count();
    return 1;
  }
  void BeginReinstall() override { Count(); }
  void EndReinstall() override { Count(); }
  void Result(std::uint64_t /*number*/, const HalRequest& /*request*/, HalReturnCode /*code*/,
              std::string_view /*reason*/) override {}
  void ObjectStateChanged(const HalObjectState& /*state*/) override {}
  void ServerFound() override {}
  void Event(std::string_view /*line*/) override {}

 private:
  void Count() {
    if (++frames_ == nth_) function_();
  }

  const std::uint64_t nth_;
  const std::function<void()> function_;
  // Only one thread sends.
  std::uint64_t frames_ = 0;
};

class KilledServerTest : public testing::Test {
 protected:
  std::string socket() const { return files_.File("hal.sock"); }

  std::unique_ptr<KeptServer> StartServer(const std::string& faults = {}) const {
    std::vector<std::string> options;
    if (!faults.empty()) options = {"--fault", files_.Write("faults", faults)};
    return std::make_unique<KeptServer>(ZUSKUX_HAL, socket(), options);
  }

  /// What the server holds after an undisturbed run.
  TableEntries TablesOf(const Site& site) const {
    const auto server = StartServer();
    SocketSystem system(socket(), nullptr);
    system.Start(site);
    auto tables = system.Settle([] { return true; });
    EXPECT_TRUE(system.complete());
    EXPECT_EQ(system.not_in_sync(), 0);
    return tables;
  }

  // Compares tables without printing them: they are long.
  void ExpectSame(const TableEntries& tables, const TableEntries& expected) const {
    EXPECT_EQ(tables.size(), expected.size());
    EXPECT_TRUE(tables == expected);
  }

  ScratchDirectory files_;
};

TEST_F(KilledServerTest, AtEachFrameThatIsHandedOver) {
  const Site site = GenerateSite(kSeed, kScriptObjects);
  const TableEntries expected = TablesOf(site);
  ASSERT_FALSE(expected.empty());
  // The begin and the end of the reinstall are frames too.
  for (std::uint64_t frame = 1; frame <= kScriptObjects + 2; frame += LongTests() ? 1U : 25U) {
    SCOPED_TRACE(frame);
    const auto server = StartServer();
    bool killed = false;
    AtFrame kill(frame, [&] {
      server->Kill();
      killed = true;
    });
    SocketSystem system(socket(), &kill);
    system.Start(site);
    ExpectSame(system.Settle([&] { return killed; }), expected);
    EXPECT_TRUE(system.complete());
  }
}

class KilledServerByFaultTest : public KilledServerTest,
                                public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Faults, KilledServerByFaultTest,
                         testing::Values("crash-before", "crash-after"), [](const auto& what) {
                           return std::string(what.param) == "crash-before" ? "Before" : "After";
                         });

TEST_P(KilledServerByFaultTest, AtEachRequestThatItCarriesOut) {
  const Site site = GenerateSite(kSeed, kScriptObjects);
  const TableEntries expected = TablesOf(site);
  for (std::uint64_t nth = 1; nth <= kScriptObjects; nth += LongTests() ? 1U : 25U) {
    SCOPED_TRACE(nth);
    const auto server = StartServer("fault { what: \"" + std::string(GetParam()) +
                                    "\" nth: " + std::to_string(nth) + " }");
    SocketSystem system(socket(), nullptr);
    system.Start(site);
    ExpectSame(system.Settle([&] { return server->starts() == 2; }), expected);
    EXPECT_TRUE(system.complete());
  }
}

// Starts a new install each time; the server is killed once during it and again in the reinstall.
TEST_F(KilledServerTest, AtRandomPointsAndAgainInTheReinstall) {
  const std::size_t objects = LongTests() ? 10'000 : 2'000;
  const int points = LongTests() ? 200 : 5;
  const Site site = GenerateSite(kSeed, objects);
  const TableEntries expected = TablesOf(site);
  std::minstd_rand random(kSeed);
  for (int point = 0; point < points; ++point) {
    const std::uint64_t first = 1 + random() % (objects * 9 / 10);
    const std::uint64_t second = first + 1 + random() % (objects / 2);
    SCOPED_TRACE(std::to_string(first) + " and " + std::to_string(second));
    const auto server = StartServer();
    int kills = 0;
    SocketSystem system(socket(), nullptr, [&](std::uint64_t results) {
      const bool due = kills == 0 ? results >= first : kills == 1 && results >= second;
      if (due && server->Kill()) ++kills;
    });
    system.Start(site);
    ExpectSame(system.Settle([&] { return kills == 2; }), expected);
    EXPECT_TRUE(system.complete());
  }
}

TEST_F(KilledServerTest, AgainAndAgain) {
  const std::size_t objects = LongTests() ? 10'000 : 1'000;
  const int wanted = LongTests() ? 500 : 10;
  const Site site = GenerateSite(kSeed + 1, objects);
  const TableEntries expected = TablesOf(site);
  std::minstd_rand random(kSeed);
  const auto server = StartServer();
  int kills = 0;
  std::uint64_t next = 1 + random() % objects;
  SocketSystem system(socket(), nullptr, [&](std::uint64_t results) {
    if (results < next || kills == wanted) return;
    if (!server->Kill()) return;
    ++kills;
    next = results + 1 + random() % (2 * objects);
  });
  system.Start(site);
  // The callback above kills only when results arrive. If the manager settles before the next kill
  // is due, kills the server here.
  while (kills < wanted) {
    system.Settle([] { return true; });
    if (kills < wanted && server->Kill()) ++kills;
  }
  ExpectSame(system.Settle([&] { return kills == wanted; }), expected);
  EXPECT_TRUE(system.complete());
  EXPECT_EQ(server->starts(), wanted + 1);
}

}  // namespace
}  // namespace reference
