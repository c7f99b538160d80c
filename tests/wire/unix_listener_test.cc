#include "reference/wire/unix_listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/asio/error.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/system/system_error.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "reference/server/hal_server.h"
#include "tests/server/raw_client.h"
#include "tests/support/test_folder.h"

namespace reference {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::ptrdiff_t OpenFiles() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

mode_t ModeOf(const std::string& path) {
  struct stat found {};
  return lstat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

class UnixListenerTest : public ::testing::Test {
 protected:
  // The listener's error message.
  std::string Complaint(const std::string& path) {
    try {
      const UnixListener listener(&io_, path);
    } catch (const boost::system::system_error& error) {
      return error.what();
    }
    return "none";
  }

  // Leaves a socket as a killed server does.
  void MakeStaleSocket(const std::string& path) {
    const boost::asio::local::stream_protocol::acceptor dead(io_, path);
    ASSERT_TRUE(Exists(path));
  }

  TestFolder folder_;
  boost::asio::io_context io_;
};

TEST_F(UnixListenerTest, CreatesTheSocketForThisUserOnly) {
  const mode_t before = umask(0);
  const UnixListener listener(&io_, folder_.Path("hal.sock"));
  umask(before);
  EXPECT_EQ(ModeOf(folder_.Path("hal.sock")), 0600U);
}

TEST_F(UnixListenerTest, LeavesAFolderThatExists) {
  std::filesystem::create_directory(folder_.Path("old"));
  chmod(folder_.Path("old").c_str(), 0755);
  const UnixListener listener(&io_, folder_.Path("old/hal.sock"));
  EXPECT_EQ(ModeOf(folder_.Path("old")), 0755U);
}

TEST_F(UnixListenerTest, RefusesAFolderInWhichOthersCanReplaceTheSocket) {
  const std::string folder = folder_.Path("shared");
  std::filesystem::create_directory(folder);
  chmod(folder.c_str(), 0777);
  EXPECT_THAT(Complaint(folder + "/hal.sock"),
              StartsWith("other users can replace a socket in the folder " + folder));
  EXPECT_FALSE(Exists(folder + "/hal.sock"));

  chmod(folder.c_str(), 0770);
  EXPECT_THAT(Complaint(folder + "/hal.sock"),
              StartsWith("other users can replace a socket in the folder " + folder));
  EXPECT_FALSE(Exists(folder + "/hal.sock"));

  chmod(folder.c_str(), 0777);
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder);
  const std::string complaint = Complaint("hal.sock");
  std::filesystem::current_path(before);
  EXPECT_THAT(complaint, StartsWith("other users can replace a socket in the folder .;"));

  // As in /tmp, only a file's owner may replace it.
  chmod(folder.c_str(), 01777);
  EXPECT_EQ(Complaint(folder + "/hal.sock"), "none");
}

TEST_F(UnixListenerTest, RefusesAFolderThatIsALinkOfAnotherUser) {
  constexpr uid_t kOtherUser = 65534;
  const std::string link = folder_.Path("link");
  std::filesystem::create_directory(folder_.Path("own"));
  std::filesystem::create_directory_symlink(folder_.Path("own"), link);
  EXPECT_EQ(Complaint(link + "/hal.sock"), "none");
  if (lchown(link.c_str(), kOtherUser, kOtherUser) != 0) GTEST_SKIP() << "needs root";
  EXPECT_THAT(Complaint(link + "/hal.sock"),
              StartsWith("the folder " + link +
                         " is a symbolic link of user 65534, who can point "
                         "it elsewhere; choose a folder of your own"));
  EXPECT_FALSE(Exists(folder_.Path("own/hal.sock")));
}

TEST_F(UnixListenerTest, RemovesTheSocketAtTheEnd) {
  { const UnixListener listener(&io_, folder_.Path("hal.sock")); }
  EXPECT_FALSE(Exists(folder_.Path("hal.sock")));
}

TEST_F(UnixListenerTest, LeavesTheSocketThatReplacedItsOwn) {
  const std::string path = folder_.Path("hal.sock");
  std::optional<UnixListener> first(std::in_place, &io_, path);
  const UnixListener second(&io_, folder_.Path("second.sock"));
  std::filesystem::rename(folder_.Path("second.sock"), path);
  first.reset();
  EXPECT_TRUE(Exists(path));
  RawClient client(path);
}

TEST_F(UnixListenerTest, ReplacesASocketThatNobodyListensOn) {
  const std::string path = folder_.Path("hal.sock");
  MakeStaleSocket(path);
  EXPECT_THROW(RawClient{path}, std::runtime_error);
  const UnixListener listener(&io_, path);
  RawClient client(path);
}

TEST_F(UnixListenerTest, LeavesALivingServer) {
  const std::string path = folder_.Path("hal.sock");
  const UnixListener listener(&io_, path);
  EXPECT_THAT(Complaint(path), StartsWith("another program listens on " + path));
  RawClient client(path);
}

TEST_F(UnixListenerTest, LeavesAListenerThatHasNoLock) {
  const std::string path = folder_.Path("hal.sock");
  const boost::asio::local::stream_protocol::acceptor other(io_, path);
  EXPECT_THAT(Complaint(path), StartsWith("another program listens on " + path));
  RawClient client(path);
}

TEST_F(UnixListenerTest, LeavesAListenerThatIsTooBusyToAccept) {
  using boost::asio::local::stream_protocol;
  const std::string path = folder_.Path("hal.sock");
  stream_protocol::acceptor busy(io_, stream_protocol());
  busy.bind(path);
  busy.listen(0);
  std::vector<stream_protocol::socket> waiting;
  const stream_protocol::endpoint endpoint(path);
  bool full = false;
  while (!full && waiting.size() < 10) {
    waiting.emplace_back(io_, stream_protocol()).non_blocking(true);
    // Without Asio, whose versions report this error in different ways.
    full = connect(waiting.back().native_handle(), endpoint.data(),
                   static_cast<socklen_t>(endpoint.size())) != 0 &&
           errno == EAGAIN;
  }
  ASSERT_TRUE(full);
  EXPECT_THAT(Complaint(path), StartsWith("another program listens on " + path));
}

TEST_F(UnixListenerTest, LeavesNoFileOpenWhenItFails) {
  const std::string path = folder_.Path("hal.sock");
  const UnixListener listener(&io_, path);
  const auto before = OpenFiles();
  EXPECT_THAT(Complaint(path), StartsWith("another program listens on " + path));
  EXPECT_EQ(OpenFiles(), before);
}

TEST_F(UnixListenerTest, LeavesNoFileOpenWhenItEnds) {
  const std::string path = folder_.Path("hal.sock");
  std::optional<UnixListener> listener(std::in_place, &io_, path);
  listener.reset();
  const auto before = OpenFiles();
  listener.emplace(&io_, path);
  listener.reset();
  EXPECT_EQ(OpenFiles(), before);
}

TEST_F(UnixListenerTest, RefusesToReplaceALivingServersLostSocket) {
  const std::string path = folder_.Path("hal.sock");
  const UnixListener listener(&io_, path);
  unlink(path.c_str());
  EXPECT_THAT(Complaint(path), StartsWith("another program listens on " + path));
}

TEST_F(UnixListenerTest, NamesALockFileThatItCannotOpen) {
  const std::string path = folder_.Path("hal.sock");
  std::filesystem::create_symlink("elsewhere", path + ".lock");
  EXPECT_THAT(Complaint(path),
              StartsWith("cannot lock " + path + ".lock; choose a path in a folder of your own: "));
  EXPECT_FALSE(Exists(path));
}

// What a later client sees of two programs that start at once.
struct Outcome {
  int listening = 0;
  bool reachable = false;
};

// Starts two listeners as nearly simultaneously as two processors can.
Outcome StartTwo(const std::string& path) {
  std::atomic<int> ready{0};
  std::array<boost::asio::io_context, 2> contexts;
  std::array<std::optional<UnixListener>, 2> listeners;
  std::array<std::thread, 2> threads;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = std::thread([&, i] {
      ++ready;
      while (ready != 2) continue;
      try {
        listeners[i].emplace(&contexts[i], path);
      } catch (const boost::system::system_error& error) {
        EXPECT_THAT(error.what(), StartsWith("another program listens on " + path));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  Outcome outcome;
  for (const auto& listener : listeners) outcome.listening += listener.has_value() ? 1 : 0;
  try {
    RawClient client(path);
    outcome.reachable = true;
  } catch (const std::runtime_error&) {
    outcome.reachable = false;
  }
  return outcome;
}

// With ZUSKUX_LONG_TESTS=1 in the environment, there are 10,000 pairs.
TEST_F(UnixListenerTest, OfTwoThatStartAtOnceOnAStaleSocketExactlyOneListens) {
  const int pairs = std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 10'000 : 200;
  const std::string path = folder_.Path("hal.sock");
  for (int pair = 0; pair < pairs; ++pair) {
    SCOPED_TRACE(pair);
    MakeStaleSocket(path);
    const Outcome outcome = StartTwo(path);
    ASSERT_EQ(outcome.listening, 1);
    ASSERT_TRUE(outcome.reachable);
  }
}

TEST_F(UnixListenerTest, LeavesAFileThatIsNotASocket) {
  const std::string path = folder_.Path("file");
  std::ofstream(path) << "precious";
  EXPECT_THAT(Complaint(path), StartsWith(path + " exists and is not a socket; remove it"));
  std::string content;
  std::ifstream(path) >> content;
  EXPECT_EQ(content, "precious");
}

TEST_F(UnixListenerTest, NamesTheLimitOfAPath) {
  const std::string base = folder_.Path("");
  const std::string fits = base + std::string(107 - base.size(), 'x');
  EXPECT_EQ(Complaint(fits), "none");
  EXPECT_THAT(Complaint(fits + "x"),
              StartsWith("the socket path is 108 bytes long, at most 107 fit; choose a shorter"));
  EXPECT_THAT(Complaint(""), StartsWith("the socket path is empty; name a file"));
}

TEST_F(UnixListenerTest, AMissingFolderIsNamedAndNotCreated) {
  const std::string folder = folder_.Path("nodir");
  EXPECT_THAT(
      Complaint(folder + "/hal.sock"),
      StartsWith("there is no folder " + folder + " for the socket; create it first with mkdir " +
                 folder + ", or correct the path"));
  EXPECT_FALSE(Exists(folder));
}

class DefaultPathTest : public ::testing::Test {
 protected:
  ~DefaultPathTest() override {
    if (before_) {
      setenv("XDG_RUNTIME_DIR", before_->c_str(), 1);
    } else {
      unsetenv("XDG_RUNTIME_DIR");
    }
  }

 private:
  static std::optional<std::string> Runtime() {
    const char* const value = getenv("XDG_RUNTIME_DIR");
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
  }

  const std::optional<std::string> before_ = Runtime();
};

TEST_F(DefaultPathTest, IsUnderTheRuntimeFolder) {
  setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
  EXPECT_EQ(DefaultSocketPath("hal.sock"), "/run/user/7/zuskux/hal.sock");
}

TEST_F(DefaultPathTest, ItsFolderIsCreatedForThisUserOnly) {
  const TestFolder runtime;
  setenv("XDG_RUNTIME_DIR", runtime.Path("").c_str(), 1);
  const std::string path = DefaultSocketPath("hal.sock");
  boost::asio::io_context io;
  const mode_t before = umask(0);
  const UnixListener listener(&io, path);
  umask(before);
  EXPECT_EQ(ModeOf(std::filesystem::path(path).parent_path()), 0700U);
}

TEST_F(DefaultPathTest, NamesAFolderThatItCannotCreate) {
  const TestFolder runtime;
  setenv("XDG_RUNTIME_DIR", runtime.Path("gone").c_str(), 1);
  boost::asio::io_context io;
  try {
    const UnixListener listener(&io, DefaultSocketPath("hal.sock"));
    FAIL() << "created in a folder that does not exist";
  } catch (const boost::system::system_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("cannot create the folder " + runtime.Path("gone/zuskux") +
                                        " for the socket; correct XDG_RUNTIME_DIR, or name a "
                                        "socket elsewhere: No such file or directory"));
  }
}

TEST_F(DefaultPathTest, IsInTmpWithoutARuntimeFolder) {
  const std::string expected = "/tmp/zuskux-" + std::to_string(getuid()) + "/hal.sock";
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(DefaultSocketPath("hal.sock"), expected);
  for (const char* const useless : {"", "relative/folder"}) {
    setenv("XDG_RUNTIME_DIR", useless, 1);
    EXPECT_EQ(DefaultSocketPath("hal.sock"), expected);
  }
}

}  // namespace
}  // namespace reference
