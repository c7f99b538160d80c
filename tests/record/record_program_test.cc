// zuskux-record as its users see it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "reference/server/hal_server.h"
#include "tests/hal/messages.h"
#include "tests/record/recordings.h"

namespace reference {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Ended {
  int code = -1;
  std::string out;
  std::string err;
};

// Runs the program with `arguments`, as a shell parses them.
Ended RunProgram(const std::string& arguments) {
  const TestFolder folder;
  const std::string out = folder.Path("out");
  const std::string err = folder.Path("err");
  const std::string command = ZUSKUX_RECORD " " + arguments + " >" + out + " 2>" + err;
  const int status = std::system(command.c_str());  // NOLINT(cert-env33-c, concurrency-mt-unsafe)
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
}

class RecordProgram : public ::testing::Test {
 protected:
  RecordProgram() : a_(folder_.Path("a")), b_(folder_.Path("b")) {
    {
      RecordedSession session(a_);
      session.Send(HalOperation::kInstallVlan, 1, Vlan(1));
      session.Send(HalOperation::kInstallHost, 3, HostOn(3, 2));
    }
    RecordedSession session(b_);
    session.Send(HalOperation::kInstallVlan, 1, Vlan(1));
    session.Fail(HalOperation::kDestroyVlan, 9, Vlan(9), kHalSuccess);
    session.Send(HalOperation::kInstallEcmp, 6, Ecmp(6, {1}));
  }

  TestFolder folder_;
  // A recording without contradictions, and one with contradictions.
  std::string a_;
  std::string b_;
};

TEST_F(RecordProgram, ShowsARecording) {
  WriteFile(folder_.Path("c"),
            RecordingBytes(TestHeader(), {EventEntry("one"), EventEntry("two")}));
  const Ended ended = RunProgram("show " + folder_.Path("c"));
  EXPECT_EQ(ended.code, 0);
  EXPECT_EQ(ended.out,
            "recorded by test 1 from 2009-02-13T23:31:30.000000042Z\n"
            "0.000000000 ---- one\n"
            "0.000000000 ---- two\n");
  EXPECT_EQ(ended.err, "");
}

TEST_F(RecordProgram, ShowsATruncatedRecording) {
  const std::string whole = RecordingBytes(TestHeader(), {EventEntry("one")});
  WriteFile(folder_.Path("c"), whole + "\x07...");
  const Ended ended = RunProgram("show " + folder_.Path("c"));
  EXPECT_EQ(ended.code, 5);
  EXPECT_THAT(ended.out, EndsWith("---- one\n"));
  EXPECT_EQ(ended.err, folder_.Path("c") + ": byte " + std::to_string(whole.size()) +
                           ": the last entry is truncated; the recording ends before it\n");
}

TEST_F(RecordProgram, ATruncatedRecordingHasAnExitStatus) {
  const std::string cut = folder_.Path("cut");
  WriteFile(cut, ReadFile(a_) + "\x07...");
  const std::string other_cut = folder_.Path("other_cut");
  WriteFile(other_cut, ReadFile(b_) + "\x07...");
  struct Case {
    std::string arguments;
    int code;
  };
  // Differences are said first.
  for (const Case& test :
       {Case{"replay --hal embedded " + cut, 5}, Case{"replay --hal embedded " + other_cut, 3},
        Case{"diff " + cut + ' ' + a_, 5}, Case{"diff " + a_ + ' ' + cut, 5},
        Case{"diff " + cut + ' ' + cut, 5}, Case{"diff " + cut + ' ' + b_, 3}}) {
    const Ended ended = RunProgram(test.arguments);
    EXPECT_EQ(ended.code, test.code) << test.arguments;
    EXPECT_THAT(ended.err, HasSubstr("cut: byte ")) << test.arguments;
    EXPECT_THAT(ended.err, HasSubstr(": the last entry is truncated; ")) << test.arguments;
  }
}

TEST_F(RecordProgram, ReplaysARecording) {
  const Ended same = RunProgram("replay " + a_ + " --hal embedded");
  EXPECT_EQ(same.code, 0);
  EXPECT_EQ(same.out,
            "requests sent 2, not compared 0, not sent because the client had refused them 0, "
            "differences 0\n");
  EXPECT_EQ(same.err, "");

  const Ended other = RunProgram("replay --hal=embedded " + b_);
  EXPECT_EQ(other.code, 3);
  EXPECT_EQ(other.out,
            "#2 destroy-vlan id=9: recorded 0 success, now 4 not installed\n"
            "requests sent 3, not compared 0, not sent because the client had refused them 0, "
            "differences 1\n");
}

// A HAL server on its own thread.
class RunningServer {
 public:
  explicit RunningServer(const std::string& path) : server_(MakeServer(&io_, path)) {
    thread_ = std::thread([this] { io_.run(); });
  }
  ~RunningServer() {
    boost::asio::post(io_, [this] {
      server_.reset();
      io_.stop();
    });
    thread_.join();
  }
  RunningServer(const RunningServer&) = delete;
  RunningServer& operator=(const RunningServer&) = delete;

 private:
  static std::unique_ptr<HalServer> MakeServer(boost::asio::io_context* io,
                                               const std::string& path) {
    HalServerOptions options;
    options.path = path;
    return std::make_unique<HalServer>(io, options);
  }

  boost::asio::io_context io_;
  std::unique_ptr<HalServer> server_;
  std::thread thread_;
};

TEST_F(RecordProgram, ReplaysToAServerWhateverItHolds) {
  const std::string recording = folder_.Path("c");
  {
    RecordedSession session(recording);
    session.Send(HalOperation::kInstallVrf, 1, Vrf(1));
    session.Send(HalOperation::kInstallVlan, 1, Vlan(1));
    session.Send(HalOperation::kReplaceVlan, 1, Vlan(1, 9000));
    session.Send(HalOperation::kDestroyVlan, 2, Vlan(2));
    session.Send(HalOperation::kInstallVrf, 2, Vrf(2));
  }
  const RunningServer server(folder_.Path("socket"));
  for (const char* const round : {"an empty server", "a server that holds what was replayed"}) {
    const Ended ended = RunProgram("replay " + recording + " --hal unix:" + folder_.Path("socket"));
    EXPECT_EQ(ended.code, 0) << round;
    EXPECT_EQ(ended.out,
              "requests sent 5, not compared 2, not sent because the client had refused them 0, "
              "differences 0\n")
        << round;
    EXPECT_EQ(ended.err, "") << round;
  }
}

TEST_F(RecordProgram, EndsWith1WithoutAServer) {
  const Ended ended = RunProgram("replay " + a_ + " --hal unix:" + folder_.Path("socket"));
  EXPECT_EQ(ended.code, 1);
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err, "zuskux-record: " + folder_.Path("socket") +
                           ": no free HAL server was found; start one with zuskux-hal, or end the "
                           "client that programs it\n");
}

TEST_F(RecordProgram, ComparesRecordings) {
  const Ended same = RunProgram("diff " + a_ + " " + a_);
  EXPECT_EQ(same.code, 0);
  EXPECT_EQ(same.out, "differences 0\n");
  EXPECT_EQ(same.err, "");

  const Ended other = RunProgram("diff " + a_ + " " + b_);
  EXPECT_EQ(other.code, 3);
  EXPECT_EQ(other.out, "ecmp 6:\n  " + a_ + ": not installed\n  " + b_ +
                           ": db_id: 6 members: 1\ndifferences 1\n");
  EXPECT_EQ(other.err, b_ + ": 1 requests that had succeeded do not fit what precedes them; the "
                            "recording does not begin with an empty HAL, and its end state is "
                            "incomplete\n");

  const Ended json = RunProgram("diff --json " + a_ + " " + b_);
  EXPECT_EQ(json.code, 3);
  EXPECT_EQ(nlohmann::json::parse(json.out),
            (nlohmann::json{{"a", a_},
                            {"b", b_},
                            {"differences",
                             {{{"kind", "ecmp"},
                               {"id", 6},
                               {"a", nullptr},
                               {"b", {{"db_id", 6}, {"members", {1}}}}}}}}));
}

TEST_F(RecordProgram, EndsWith1ForAFileThatIsNoRecording) {
  WriteFile(folder_.Path("text"), "no recording \xFF");
  for (const std::string& command :
       {std::string("show "), std::string("replay --hal embedded "), "diff " + a_ + ' '}) {
    const Ended ended = RunProgram(command + folder_.Path("text"));
    EXPECT_EQ(ended.code, 1) << command;
    EXPECT_EQ(ended.out, "") << command;
    EXPECT_EQ(ended.err,
              "zuskux-record: " + folder_.Path("text") +
                  ": byte 0: this is not a recording, or its header is truncated; name a "
                  "file that was written as a recording\n")
        << command;
  }
}

TEST_F(RecordProgram, ComparesFieldsAndNamesInterfaces) {
  const auto record = [this](const std::string& name, std::uint32_t mtu) {
    RecordedSession session(folder_.Path(name));
    session.recorder().Interface(1, "eth0", 1, 4);
    encapsulation::VlanMessage vlan = Vlan(5, mtu);
    vlan.set_lim_id(std::string("\x01\0\0\0", 4));
    vlan.set_source_mac_address(std::string("\x02\0\0\0\x04n", 6));
    session.Send(HalOperation::kInstallVlan, 5, vlan);
    return folder_.Path(name);
  };
  const std::string small = record("small", 1500);
  const std::string large = record("large", 9000);
  EXPECT_EQ(RunProgram("diff " + small + " " + large).out,
            "vlan 5:\n  mtu: 1500 -> 9000\ndifferences 1\n");
  const std::string empty = folder_.Path("empty");
  { const RecordedSession session(empty); }
  EXPECT_EQ(RunProgram("diff " + small + " " + empty).out,
            "vlan 5:\n  " + small +
                ": interface: eth0 source_mac_address: 02:00:00:00:04:6e vlan_destination_id: 5 "
                "mtu: 1500\n  " +
                empty + ": not installed\ndifferences 1\n");
}

TEST_F(RecordProgram, EndsWith1WhenItsOutputIsLost) {
  const std::string err = folder_.Path("err");
  // The trailing # makes the rest of the command line a comment.
  const Ended ended = RunProgram("show " + a_ + " >/dev/full 2>" + err + " #");
  EXPECT_EQ(ended.code, 1);
  EXPECT_EQ(ReadFile(err), "zuskux-record: standard output: No space left on device\n");
}

TEST_F(RecordProgram, EndsWith2ForWrongUsage) {
  struct Case {
    std::string arguments;
    std::string error;
  };
  for (const Case& test :
       {Case{"", "a command is missing; use show, replay or diff"},
        Case{"list x", "'list' is not a command; use show, replay or diff"},
        Case{"show", "show takes 1 recording, not 0"},
        Case{"show a b", "show takes 1 recording, not 2"},
        Case{"show --json a", "--json is an option of diff; leave it out"},
        Case{"diff a", "diff takes 2 recordings, not 1"},
        Case{"show a --hal embedded", "--hal is an option of replay; leave it out"},
        Case{"replay a", "--hal is missing; add --hal embedded, unix or unix:PATH"},
        Case{"replay a --hal unix:",
             "--hal 'unix:' is not a HAL; use --hal embedded, unix or unix:PATH"},
        Case{"replay a --hal /tmp/x",
             "--hal '/tmp/x' is not a HAL; use --hal embedded, unix or unix:PATH"},
        Case{"show a --other", "unrecognised option '--other'"}}) {
    const Ended ended = RunProgram(test.arguments);
    EXPECT_EQ(ended.code, 2) << test.arguments;
    EXPECT_EQ(ended.out, "") << test.arguments;
    EXPECT_EQ(ended.err, "zuskux-record: " + test.error + "; see --help\n") << test.arguments;
  }
}

TEST_F(RecordProgram, Explains) {
  const Ended help = RunProgram("--help");
  EXPECT_EQ(help.code, 0);
  EXPECT_THAT(help.out, StartsWith("Usage: zuskux-record show FILE\n"));
  EXPECT_THAT(help.out, HasSubstr("--hal HAL"));
  EXPECT_EQ(help.err, "");
  EXPECT_EQ(RunProgram("-h").out, help.out);
  EXPECT_EQ(RunProgram("--version").out, "zuskux-record " ZUSKUX_VERSION "\n");
}

}  // namespace
}  // namespace reference
