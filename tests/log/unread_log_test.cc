// The programs when nobody reads their standard error: they keep working and exit as usual.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/manager/process.h"
#include "tests/server/raw_client.h"

namespace reference {
namespace {

using std::chrono::steady_clock;
using ::testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr char kSite[] =
    "interface { name: \"eth0\" lim_id: 1 }\n"
    "vlan { id: 10 name: \"a\" interface: \"eth0\" mtu: 1500 }\n";

/// A full pipe: writers to it block.
class FullPipe {
 public:
  FullPipe() {
    if (pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK) != 0) std::abort();
    const std::array<char, 4096> page{};
    while (write(ends_[1], page.data(), page.size()) > 0) {
    }
    fcntl(ends_[1], F_SETFL, 0);
  }
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;
  ~FullPipe() {
    CloseReader();
    close(ends_[1]);
  }

  int writer() const { return ends_[1]; }
  /// Appends to `text` what can be read now.
  void Read(std::string* text) const {
    std::array<char, 4096> part{};
    for (ssize_t size = 0; (size = read(ends_[0], part.data(), part.size())) > 0;) {
      text->append(part.data(), static_cast<std::size_t>(size));
    }
  }
  void CloseReader() {
    if (ends_[0] >= 0) close(ends_[0]);
    ends_[0] = -1;
  }

 private:
  std::array<int, 2> ends_{};
};

// A socket's file exists a moment before anybody listens on it.
bool WaitForListener(const std::string& path) {
  for (int i = 0; i < 2000; ++i) {
    try {
      const RawClient connected(path);
      return true;
    } catch (const std::runtime_error&) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  return false;
}

class UnreadLogTest : public ::testing::Test {
 protected:
  std::string socket() const { return files_.File("hal.sock"); }
  std::string control() const { return files_.File("manager.sock"); }

  /// Bounded, even if the program is stuck.
  int Run(const Words& words, int error) const { return Process(words, error).Wait(); }

  int ShowTables() const { return Process({ZUSKUX_HAL, "tables", "--socket", socket()}).Wait(); }

  // Each connection logs one line, or two if it has said hello.
  void Connect(int times) const {
    for (int i = 0; i < times; ++i) ASSERT_TRUE(RawClient(socket()).Greet()) << i;
  }

  ScratchDirectory files_;
  FullPipe error_;
};

TEST_F(UnreadLogTest, TheServerKeepsServing) {
  Process server({ZUSKUX_HAL, "--socket", socket()}, error_.writer());
  ASSERT_TRUE(WaitForListener(socket()));
  ASSERT_NO_FATAL_FAILURE(Connect(1000));
  EXPECT_EQ(ShowTables(), 0);
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0);
}

TEST_F(UnreadLogTest, TheServerKeepsServingWhenTheReaderCloses) {
  Process server({ZUSKUX_HAL, "--socket", socket()}, error_.writer());
  ASSERT_TRUE(WaitForListener(socket()));
  error_.CloseReader();
  ASSERT_NO_FATAL_FAILURE(Connect(10));
  EXPECT_EQ(ShowTables(), 0);
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0);
}

TEST_F(UnreadLogTest, TheManagerProgramsTheHal) {
  const Process server({ZUSKUX_HAL, "--socket", socket()});
  ASSERT_TRUE(WaitForListener(socket()));
  EXPECT_EQ(Run({ZUSKUX_MANAGER, files_.Write("site", kSite), "--hal", "unix:" + socket()},
                error_.writer()),
            0);
  error_.CloseReader();
  EXPECT_EQ(Run({ZUSKUX_MANAGER, files_.Write("site", kSite), "--hal", "unix:" + socket()},
                error_.writer()),
            0);
}

// The trace is many times the size of a pipe.
TEST_F(UnreadLogTest, TheManagerTracesAndProgramsTheHal) {
  std::string site = "interface { name: \"eth0\" lim_id: 1 }\n";
  for (int id = 1; id <= 500; ++id) {
    site += "vlan { id: " + std::to_string(id) + " name: \"" + std::to_string(id) +
            std::string(1000, 'n') + "\" interface: \"eth0\" mtu: 1500 }\n";
  }
  const Words words = {ZUSKUX_MANAGER, files_.Write("site", site), "--trace"};
  EXPECT_EQ(Run(words, error_.writer()), 0);
  error_.CloseReader();
  EXPECT_EQ(Run(words, error_.writer()), 0);
}

// With --log-config, the library's lines go through the host's zlog, which writes in the thread
// that logs and drops nothing. This is the one log that can block a program.
TEST_F(UnreadLogTest, AConfigurationThatNamesStandardErrorWaitsForItsReader) {
  const std::string config =
      files_.Write("config",
                   "[levels]\nTRACE = 10\n[formats]\nl = \"%U%n\"\n[rules]\nzuskux.TRACE "
                   ">stderr; l\n");
  const Process manager({ZUSKUX_MANAGER, files_.Write("site", kSite), "--log-config", config,
                         "--dump-hal", files_.File("tables")},
                        error_.writer());
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_TRUE(manager.Runs());
  EXPECT_EQ(ReadText(files_.File("tables")), "");
  std::string error;
  const auto end = steady_clock::now() + std::chrono::seconds(30);
  while (manager.Runs() && steady_clock::now() < end) {
    error_.Read(&error);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  error_.Read(&error);
  EXPECT_FALSE(manager.Runs());
  EXPECT_THAT(ReadText(files_.File("tables")), HasSubstr("vlan:10"));
  EXPECT_THAT(error, HasSubstr("HalServerFoundCallback\n"));
}

TEST_F(UnreadLogTest, AManagerThatStaysAnswersAndReloads) {
  const std::string site = files_.Write("site", kSite);
  Process manager({ZUSKUX_MANAGER, site, "--stay", "--control", control()}, error_.writer());
  ASSERT_TRUE(WaitForListener(control()));
  const auto status = [this] {
    Process process({ZUSKUX_MANAGER, "status", "--control", control(), "--json"});
    // So soon after the start, the manager may not have settled.
    EXPECT_THAT(process.Wait(), testing::AnyOf(0, 3, 4));
    return process.out();
  };
  status();
  for (const bool reader : {true, false}) {
    if (!reader) error_.CloseReader();
    manager.Signal(SIGHUP);
    EXPECT_THAT(status(), HasSubstr("\"objects\""));
  }
  manager.Signal(SIGTERM);
  EXPECT_EQ(manager.Wait(), 0);
}

TEST_F(UnreadLogTest, CommandsEndWithTheirExitStatus) {
  const auto start = steady_clock::now();
  EXPECT_EQ(Run({ZUSKUX_MANAGER, "--bogus"}, error_.writer()), 2);
  EXPECT_EQ(Run({ZUSKUX_HAL, "--bogus"}, error_.writer()), 2);
  EXPECT_EQ(Run({ZUSKUX_RECORD, "--bogus"}, error_.writer()), 2);
  EXPECT_EQ(Run({ZUSKUX_RECORD, "show", files_.File("missing")}, error_.writer()), 1);
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(20));
  error_.CloseReader();
  EXPECT_EQ(Run({ZUSKUX_MANAGER, "--bogus"}, error_.writer()), 2);
  EXPECT_EQ(Run({ZUSKUX_HAL, "--bogus"}, error_.writer()), 2);
  EXPECT_EQ(Run({ZUSKUX_RECORD, "--bogus"}, error_.writer()), 2);
}

}  // namespace
}  // namespace reference
