/// What happens to the tables while there is no manager.

#include "reference/server/abandoned_tables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "reference/server/session.h"
#include "tests/hal/fake_data_plane.h"
#include "tests/hal/messages.h"
#include "tests/hal/observed.h"
#include "tests/server/raw_client.h"
#include "tests/server/test_server.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::Contains;
using testing::EndsWith;
using testing::IsEmpty;

constexpr int kInstallVlan = 5;
constexpr int kHeartbeat = 20;

HalServerOptions Keep(seconds keep, DataPlane* data_plane = nullptr) {
  HalServerOptions options;
  options.keep = keep;
  options.data_plane = data_plane;
  return options;
}

void InstallVlans(std::uint32_t count, RawClient* client) {
  std::string requests;
  for (std::uint32_t id = 1; id <= count; ++id) {
    requests += FrameBytes(kInstallVlan, id, Vlan(id).SerializeAsString());
  }
  std::thread sender([&] { client->Send(requests); });
  EXPECT_EQ(client->ReceiveFrames(count).size(), count);
  sender.join();
}

// Waits until the server holds that many entries, for 20 s at most.
bool Holds(std::size_t entries, TestServer* server) {
  const auto end = steady_clock::now() + seconds(20);
  while (server->Tables().size(HalKind::kVlan) != entries) {
    if (steady_clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(10));
  }
  return true;
}

TEST(AbandonedTablesTest, AreEmptiedAfterTheTime) {
  // More than the server removes in one step.
  constexpr std::uint32_t kCount = 40'000;
  TestServer server(Keep(seconds(1)));
  {
    RawClient client(server.path());
    client.Greet();
    InstallVlans(kCount, &client);
  }
  EXPECT_TRUE(Holds(0, &server));
  const auto count = [&server] {
    const auto lines = server.Lines();
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.find("no manager for 1 s: removed 40000 entries") != std::string::npos;
    });
  };
  for (int i = 0; i < 2'000 && count() == 0; ++i) std::this_thread::sleep_for(milliseconds(10));
  // Lets it work on, if it had not ended.
  for (int i = 0; i < 10; ++i) server.Tables();
  EXPECT_EQ(count(), 1);
}

TEST(AbandonedTablesTest, AreEmptiedBehindTheTablesToo) {
  FakeDataPlane data_plane;
  TestServer server(Keep(seconds(1), &data_plane));
  {
    RawClient client(server.path());
    client.Greet();
    InstallVlans(1, &client);
  }
  EXPECT_TRUE(Holds(0, &server));
  server.Stop();
  EXPECT_TRUE(data_plane.entries().empty());
}

TEST(AbandonedTablesTest, StayWhileThereIsAManager) {
  TestServer server(Keep(seconds(1)));
  RawClient client(server.path());
  client.Greet();
  InstallVlans(1, &client);
  std::this_thread::sleep_for(milliseconds(1'500));
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 1);
}

TEST(AbandonedTablesTest, StayForeverByDefault) {
  TestServer server;
  {
    RawClient client(server.path());
    client.Greet();
    InstallVlans(1, &client);
  }
  std::this_thread::sleep_for(milliseconds(1'500));
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), 1);
}

/// Calls a function when the server begins to empty the tables, on the server's thread.
class EmptyingObserver : public Observed {
 public:
  explicit EmptyingObserver(std::function<void()> begins) : begins_(std::move(begins)) {}

  void EndReinstall() override { begins_(); }

 private:
  const std::function<void()> begins_;
};

TEST(AbandonedTablesTest, AreNotEmptiedFurtherOnceAManagerComes) {
  constexpr std::uint32_t kCount = 40'000;
  std::atomic<bool> abandoned = false;
  std::optional<RawClient> next;
  EmptyingObserver observer([&] {
    // The server reads this after the first step.
    if (abandoned) next->Send(kInstallVlan, 1, Vlan(kCount + 1).SerializeAsString());
  });
  HalServerOptions options = Keep(seconds(1));
  options.observer = &observer;
  TestServer server(options);
  next.emplace(server.path());
  next->Greet();
  {
    RawClient client(server.path());
    client.Greet();
    InstallVlans(kCount, &client);
    abandoned = true;
  }
  EXPECT_EQ(next->Receive(), Result(1, 0, kCount + 1));
  for (std::uint32_t beat = 1; beat <= 10; ++beat) {
    next->Send(kHeartbeat, beat);
    EXPECT_EQ(next->Receive(), (RawFrame{kHeartbeat, beat, ""}));
  }
  constexpr std::uint32_t kStep = 16 * 1024;
  EXPECT_EQ(server.Tables().size(HalKind::kVlan), kCount - kStep + 1);
}

// Only a writer counts.
TEST(AbandonedTablesTest, AReaderIsNoManager) {
  TestServer server(Keep(seconds(1)));
  {
    RawClient client(server.path());
    client.Greet();
    InstallVlans(1, &client);
  }
  RawClient reader(server.path());
  reader.Greet();
  EXPECT_TRUE(Holds(0, &server));
}

TEST(AbandonedTablesTest, WithoutAnyManagerTheTimeBeginsWithTheServer) {
  TestServer server(Keep(seconds(1)));
  const auto end = steady_clock::now() + seconds(20);
  const auto emptied = Contains(EndsWith("no manager for 1 s: removed 0 entries"));
  while (!testing::Matches(emptied)(server.Lines()) && steady_clock::now() < end) {
    std::this_thread::sleep_for(milliseconds(10));
  }
  EXPECT_THAT(server.Lines(), emptied);
}

/// The time has just passed when something else happens.
class AbandonedTablesTimerTest : public testing::Test {
 protected:
  AbandonedTablesTimerTest() {
    HalServerOptions options;
    options.log = [this](LogLevel, const std::string& line) { lines_.push_back(line); };
    state_.emplace(std::move(options));
    tables_.emplace(&io_, &*state_, seconds(1));
  }

  // Calls `event` after the timer has expired, and before its handler could run.
  void AfterTheTimeCall(const std::function<void()>& event) {
    boost::asio::steady_timer earlier(io_, milliseconds(1));
    earlier.async_wait([&](const boost::system::error_code&) { event(); });
    std::this_thread::sleep_for(milliseconds(1'100));
    // One of the two handlers each.
    EXPECT_EQ(io_.poll_one(), 1U);
    EXPECT_EQ(io_.poll_one(), 1U);
  }

  boost::asio::io_context io_;
  std::vector<std::string> lines_;
  std::optional<ServerState> state_;
  std::optional<AbandonedTables> tables_;
};

TEST_F(AbandonedTablesTimerTest, AreEmptiedWithoutAnEvent) {
  AfterTheTimeCall([] {});
  EXPECT_THAT(lines_, Contains(EndsWith("no manager for 1 s: removed 0 entries")));
}

TEST_F(AbandonedTablesTimerTest, AManagerThatCameAndLeftStartsTheTimeAgain) {
  AfterTheTimeCall([this] {
    tables_->WriterCame();
    tables_->WriterLeft();
  });
  EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(AbandonedTablesTimerTest, StayWhenTheServerEnds) {
  AfterTheTimeCall([this] { tables_.reset(); });
  EXPECT_THAT(lines_, IsEmpty());
}

}  // namespace
}  // namespace reference
