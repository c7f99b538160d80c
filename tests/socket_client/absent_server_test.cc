/// How soon the client notices that a server listens again.
///
/// With ZUSKUX_LONG_TESTS=1 in the environment, servers with 10,000 entries are away for up to a
/// minute.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "reference/server/hal_server.h"
#include "reference/socket_client/socket_watch.h"
#include "tests/socket_client/fake_server.h"
#include "tests/socket_client/reported.h"
#include "tests/support/test_folder.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::hours kNever{1};

void Touch(const std::string& path) { const std::ofstream file(path); }

class SocketWatchTest : public testing::Test {
 protected:
  /// Handles the folder's events so far. Returns how often the file appeared.
  int Appeared() {
    io_.restart();
    while (io_.poll() != 0) {
    }
    return std::exchange(appeared_, 0);
  }

  std::string Path(const std::string& name) const { return files_.Path(name); }

  int appeared_ = 0;
  TestFolder files_;
  boost::asio::io_context io_;
  SocketWatch watch_{&io_, files_.Path("hal.sock"), [this] { ++appeared_; }};
};

TEST_F(SocketWatchTest, NoticesAFileThatIsMade) {
  watch_.Watch();
  EXPECT_EQ(Appeared(), 0);
  Touch(Path("hal.sock"));
  EXPECT_EQ(Appeared(), 1);
}

TEST_F(SocketWatchTest, APathWithoutAFolderIsInTheCurrentOne) {
  const auto folder = std::filesystem::current_path();
  std::filesystem::current_path(Path(""));
  SocketWatch watch(&io_, "hal.sock", [this] { ++appeared_; });
  watch.Watch();
  Touch("hal.sock");
  EXPECT_EQ(Appeared(), 1);
  std::filesystem::current_path(folder);
}

TEST_F(SocketWatchTest, NoticesAFileThatIsRenamedToThePath) {
  Touch(Path("other"));
  watch_.Watch();
  std::filesystem::rename(Path("other"), Path("hal.sock"));
  EXPECT_EQ(Appeared(), 1);
}

TEST_F(SocketWatchTest, NoticesAFileThatIsLinkedToThePath) {
  Touch(Path("other"));
  watch_.Watch();
  std::filesystem::create_hard_link(Path("other"), Path("hal.sock"));
  EXPECT_EQ(Appeared(), 1);
}

TEST_F(SocketWatchTest, NoticesItBehindManyOthers) {
  watch_.Watch();
  for (int i = 0; i < 1000; ++i)
    Touch(Path("a-file-with-a-name-of-another-length-" + std::to_string(i)));
  Touch(Path("hal.sock"));
  EXPECT_EQ(Appeared(), 1);
}

TEST_F(SocketWatchTest, IgnoresOtherFiles) {
  Touch(Path("hal.sock"));
  watch_.Watch();
  Touch(Path("hal.sock2"));
  Touch(Path("hal.soc"));
  std::filesystem::remove(Path("hal.sock"));
  EXPECT_EQ(Appeared(), 0);
}

TEST_F(SocketWatchTest, IgnoresEverythingOnceItIsStopped) {
  watch_.Watch();
  watch_.Stop();
  Touch(Path("hal.sock"));
  EXPECT_EQ(Appeared(), 0);
  std::filesystem::remove(Path("hal.sock"));
  watch_.Watch();
  Touch(Path("hal.sock"));
  EXPECT_EQ(Appeared(), 1);
}

TEST_F(SocketWatchTest, IgnoresWhatItHasNotReadWhenItIsStopped) {
  watch_.Watch();
  Touch(Path("hal.sock"));
  watch_.Stop();
  EXPECT_EQ(Appeared(), 0);
}

TEST_F(SocketWatchTest, IgnoresTheEndOfItsFolder) {
  const std::string folder = Path("folder");
  std::filesystem::create_directory(folder);
  SocketWatch watch(&io_, folder + "/hal.sock", [this] { ++appeared_; });
  watch.Watch();
  Touch(folder + "/hal.sock");
  EXPECT_EQ(Appeared(), 1);
  // The event that follows has no name.
  std::filesystem::remove_all(folder);
  EXPECT_EQ(Appeared(), 0);
}

TEST_F(SocketWatchTest, FollowsAFolderThatIsReplaced) {
  const std::string folder = Path("folder");
  SocketWatch watch(&io_, folder + "/hal.sock", [this] { ++appeared_; });
  watch.Watch();
  EXPECT_EQ(Appeared(), 0) << "there is no folder";
  std::filesystem::create_directory(folder);
  watch.Watch();
  std::filesystem::rename(folder, Path("old"));
  std::filesystem::create_directory(folder);
  watch.Watch();
  Touch(Path("old/hal.sock"));
  EXPECT_EQ(Appeared(), 0) << "in the previous folder";
  Touch(folder + "/hal.sock");
  EXPECT_EQ(Appeared(), 1);
}

class AbsentServerTest : public testing::Test {
 protected:
  SocketHalOptions Options() {
    SocketHalOptions options;
    options.path = server_.path();
    options.log = [this](LogLevel, const std::string& line) { log_.Add(line); };
    return options;
  }

  void Start(const SocketHalOptions& options) {
    hal_ = std::make_unique<SocketHal>(options);
    hal_->Start(reported_.Reports());
  }

  FakeServer server_;
  Record log_;
  Reported reported_;
  std::unique_ptr<SocketHal> hal_;
};

TEST_F(AbsentServerTest, ASocketThatAppearsEndsThePause) {
  server_.StopListening();
  SocketHalOptions options = Options();
  options.reconnect_first = options.reconnect_last = options.reconnect_absent = kNever;
  Start(options);
  EXPECT_EQ(log_.AwaitStart("no HAL server"),
            "no HAL server at " + server_.path() + ": No such file or directory");
  const std::string other = server_.path() + ".new";
  server_.ListenAt(other);
  std::filesystem::rename(other, server_.path());
  server_.AcceptAndGreet();
  EXPECT_THAT(reported_.Await(1), ElementsAre("found"));
}

TEST_F(AbsentServerTest, ASocketThatAppearsAgainAndAgainIsTriedEveryTenMillisecondsAtMost) {
  constexpr int kTimes = 20;
  SocketHalOptions options = Options();
  options.reconnect_first = options.reconnect_last = options.reconnect_absent = kNever;
  const auto begin = Clock::now();
  Start(options);
  for (std::size_t i = 1; i <= kTimes; ++i) {
    server_.AcceptAndGreet();
    server_.Close();
    // The client finds the server, then loses it.
    ASSERT_EQ(log_.Await(2 * i).size(), 2 * i);
    const std::string other = server_.path() + ".old";
    std::filesystem::rename(server_.path(), other);
    std::filesystem::rename(other, server_.path());
  }
  EXPECT_GE(Clock::now() - begin, (kTimes - 1) * milliseconds(10));
}

TEST_F(AbsentServerTest, ASocketInAFolderThatIsNotWatchedIsFoundSoon) {
  const TestFolder files;
  const std::string folder = files.Path("folder");
  server_.StopListening();
  SocketHalOptions options = Options();
  options.path = folder + "/hal.sock";
  options.reconnect_first = options.reconnect_last = kNever;
  options.reconnect_absent = milliseconds(5);
  Start(options);
  log_.AwaitStart("no HAL server");
  std::filesystem::create_directory(folder);
  server_.ListenAt(options.path);
  server_.AcceptAndGreet();
  EXPECT_THAT(reported_.Await(1), ElementsAre("found"));
}

/// The pause has grown to more than a second.
class GrownPauseTest : public AbsentServerTest {
 protected:
  static constexpr milliseconds kFirst{20};
  static constexpr milliseconds kGrown{1'280};

  SocketHalOptions GrowingOptions() {
    SocketHalOptions options = Options();
    options.reconnect_first = kFirst;
    options.reconnect_last = options.reconnect_absent = kNever;
    return options;
  }

  void StartAndGreetOnceThePauseHasGrown() {
    Start(GrowingOptions());
    for (milliseconds pause = kFirst; pause < kGrown / 2; pause *= 2) {
      server_.Accept();
      server_.Close();
    }
    server_.AcceptAndGreet();
    reported_.Await(1);
  }

  /// Fails if the pause starts over.
  void ExpectALongPause() {
    const auto begin = Clock::now();
    server_.AcceptAndGreet();
    EXPECT_GT(Clock::now() - begin, kGrown / 4);
  }

  /// Fails if the pause continues from where it was.
  void ExpectAttemptSoon() {
    const auto begin = Clock::now();
    server_.AcceptAndGreet();
    EXPECT_LT(Clock::now() - begin, kGrown / 2);
  }
};

TEST_F(GrownPauseTest, StartsOverAfterAGoodConnection) {
  Start(GrowingOptions());
  for (milliseconds pause = kFirst; pause < kGrown; pause *= 2) {
    server_.Accept();
    server_.Close();
  }
  server_.AcceptAndGreet();
  reported_.Await(1);
  EXPECT_EQ(InstallVlan(hal_.get(), 1), kHalSuccess);
  server_.Answer(server_.Next());
  EXPECT_EQ(reported_.Await(2).back(), "InstallVlan 1: 0");
  server_.Close();
  ExpectAttemptSoon();
}

TEST_F(GrownPauseTest, GoesOnAfterAServerThatOnlySaidHello) {
  StartAndGreetOnceThePauseHasGrown();
  server_.Close();
  ExpectALongPause();
}

TEST_F(GrownPauseTest, GoesOnAfterAServerThatSentWhatNoServerSends) {
  StartAndGreetOnceThePauseHasGrown();
  server_.SendFrame(FrameType::kReadTables, 0, "");
  EXPECT_TRUE(server_.AwaitClosed());
  ExpectALongPause();
}

TEST_F(GrownPauseTest, StartsOverWhenASocketAppearsThatDoesNotListenYet) {
  server_.StopListening();
  Start(GrowingOptions());
  log_.AwaitStart("no HAL server");
  // Not every attempt logs a line.
  std::this_thread::sleep_for(kGrown - kFirst / 2);
  server_.BindAt(server_.path());
  const std::string refused = "no HAL server at " + server_.path() + ": Connection refused";
  EXPECT_EQ(log_.AwaitStart(refused), refused);
  server_.StartListening();
  ExpectAttemptSoon();
}

/// A server on the test's thread, and a client that installs `entries` VLANs whenever it finds the
/// server.
class Pair {
 public:
  Pair(boost::asio::io_context* io, std::uint32_t entries)
      : io_(io), entries_(entries), timer_(*io) {
    Listen();
    SocketHalOptions options;
    options.path = folder_.path();
    // The VLANs, plus the begin and the end.
    options.queue_entries = entries + 2;
    options.log = [this](LogLevel, const std::string& line) {
      if (line.rfind("in sync", 0) == 0) in_sync_at_ = Clock::now();
    };
    hal_ = std::make_unique<SocketHal>(options);
    hal_->Start({&results_, [this] { Reinstall(); }, {}});
  }

  bool InSync() const { return in_sync_at_.load() != Clock::time_point(); }

  /// Stops the server for that long.
  void Restart(milliseconds away) {
    in_sync_at_ = Clock::time_point();
    server_.reset();
    timer_.expires_after(away);
    timer_.async_wait([this](const boost::system::error_code& error) {
      if (!error) Listen();
    });
  }

  /// From the server's return until it was in sync.
  milliseconds TimeToSync() const {
    return std::chrono::duration_cast<milliseconds>(in_sync_at_.load() - listening_at_);
  }

 private:
  void Listen() {
    listening_at_ = Clock::now();
    HalServerOptions options;
    options.path = folder_.path();
    server_ = std::make_unique<HalServer>(io_, options);
  }

  void Reinstall() {
    hal_->BeginReinstall();
    for (std::uint32_t id = 1; id <= entries_; ++id) {
      EXPECT_EQ(InstallVlan(hal_.get(), id), kHalSuccess);
    }
    hal_->EndReinstall();
  }

  boost::asio::io_context* const io_;
  const std::uint32_t entries_;
  const SocketFolder folder_;
  boost::asio::steady_timer timer_;
  std::unique_ptr<HalServer> server_;
  Clock::time_point listening_at_;
  // Written by the connection's thread.
  std::atomic<Clock::time_point> in_sync_at_{Clock::time_point()};
  RecordingResults results_{[](const Result& result) { EXPECT_EQ(result.code, 0U); }};
  std::unique_ptr<SocketHal> hal_;
};

TEST(RestartsTest, AreInSyncSoonHoweverLongTheServerWasAway) {
  const bool long_form = std::getenv("ZUSKUX_LONG_TESTS") != nullptr;
  const std::size_t restarts = long_form ? 60 : 12;
  const milliseconds longest = long_form ? milliseconds(60'000) : milliseconds(1'500);
  const std::uint32_t entries = long_form ? 10'000 : 10;

  boost::asio::io_context io;
  std::vector<std::unique_ptr<Pair>> pairs;
  const auto run_until_in_sync = [&] {
    const auto end = Clock::now() + longest + kPatience;
    const auto in_sync = [](const auto& pair) { return pair->InSync(); };
    while (!std::all_of(pairs.begin(), pairs.end(), in_sync) && Clock::now() < end) {
      io.run_for(milliseconds(1));
      io.restart();
    }
    return std::all_of(pairs.begin(), pairs.end(), in_sync);
  };
  for (std::size_t i = 0; i < restarts; ++i) pairs.push_back(std::make_unique<Pair>(&io, entries));
  ASSERT_TRUE(run_until_in_sync());
  for (std::size_t i = 0; i < restarts; ++i) pairs[i]->Restart(longest * i / (restarts - 1));
  ASSERT_TRUE(run_until_in_sync());

  std::vector<milliseconds> times;
  for (const auto& pair : pairs) times.push_back(pair->TimeToSync());
  std::sort(times.begin(), times.end());
  const milliseconds median = times[times.size() / 2];
  const milliseconds worst = times.back();
  std::cout << restarts << " restarts, away up to " << longest.count() << " ms, " << entries
            << " entries: in sync after p50 " << median.count() << " ms, p99 and max "
            << worst.count() << " ms\n";
  // The short form runs in parallel with other tests.
  EXPECT_LT(long_form ? worst : median, milliseconds(300));
}

}  // namespace
}  // namespace reference
