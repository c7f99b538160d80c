// zuskux-hal as a process.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "base_encap_message.pb.h"
#include "tests/server/raw_client.h"
#include "tests/support/log_text.h"
#include "tests/support/test_folder.h"

#if defined(__has_feature)
#define ZUSKUX_THREAD_SANITIZER __has_feature(thread_sanitizer)
#elif defined(__SANITIZE_THREAD__)
#define ZUSKUX_THREAD_SANITIZER 1
#else
#define ZUSKUX_THREAD_SANITIZER 0
#endif

namespace reference {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

/// zuskux-hal with its output in files. Killed on destruction if it still runs.
class Process {
 public:
  Process(const std::string& folder, const std::vector<std::string>& arguments)
      : output_(folder + "/stdout"), error_(folder + "/stderr"), pid_(fork()) {
    if (pid_ != 0) return;
    std::vector<const char*> argv = {ZUSKUX_HAL};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    dup2(open(output_.c_str(), O_WRONLY | O_CREAT, S_IRUSR | S_IWUSR), STDOUT_FILENO);
    dup2(open(error_.c_str(), O_WRONLY | O_CREAT, S_IRUSR | S_IWUSR), STDERR_FILENO);
    execv(ZUSKUX_HAL, const_cast<char* const*>(argv.data()));
    _exit(127);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process() {
    if (pid_ == 0) return;
    kill(pid_, SIGKILL);
    Wait();
  }

  void Signal(int signal) const { kill(pid_, signal); }

  /// Waits for the end. Returns the exit code; -1 after a signal.
  int Wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  /// The peak memory so far, in KiB.
  int PeakMemory() const {
    const std::string status = Read("/proc/" + std::to_string(pid_) + "/status");
    return std::stoi(status.substr(status.find("VmHWM:") + 6));
  }

  std::string Output() const { return Read(output_); }
  /// Without times and levels.
  std::string Error() const { return WithoutTimes(Read(error_)); }

  /// The level of the line that contains `text`.
  std::string LevelOf(const std::string& text) const {
    std::istringstream log(Read(error_));
    std::string day;
    std::string time;
    std::string level;
    for (std::string line; std::getline(log, line);) {
      if (line.find(text) != std::string::npos) std::istringstream(line) >> day >> time >> level;
    }
    return level;
  }

  /// Waits, 5 seconds at most, until standard error contains `text`.
  bool Says(const std::string& text) const {
    for (int count = 0; count < 500; ++count) {
      if (Error().find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }

 private:
  static std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  const std::string output_;
  const std::string error_;
  pid_t pid_;
};

class ZuskuxHalTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path(name); }

  // A folder for the output of one process.
  std::string OutputFolder() {
    const std::string folder = Path("output-" + std::to_string(++outputs_));
    std::filesystem::create_directory(folder);
    return folder;
  }

  struct Ended {
    int code;
    std::string output;
    std::string error;
  };

  Ended RunToEnd(const std::vector<std::string>& arguments) {
    Process process(OutputFolder(), arguments);
    const int code = process.Wait();
    return {code, process.Output(), process.Error()};
  }

  const TestFolder folder_;
  int outputs_ = 0;
};

TEST_F(ZuskuxHalTest, HelpFitsATerminal) {
  const Ended ended = RunToEnd({"--help"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_EQ(ended.error, "");
  EXPECT_EQ(RunToEnd({"-h"}).output, ended.output);
  std::istringstream lines(ended.output);
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    ++count;
    EXPECT_LE(line.size(), 80U) << line;
  }
  EXPECT_LE(count, 30);
  for (const char* const option :
       {"tables", "--socket PATH", "--table-size N", "--max-payload BYTES", "--fault FILE",
        "--data-plane linux", "--interfaces SITE", "--netns NAME", "--print", "--quiet", "--json",
        "--check", "--help", "--version"}) {
    EXPECT_THAT(ended.output, HasSubstr(option));
  }
}

TEST_F(ZuskuxHalTest, ShowsItsVersion) {
  const Ended ended = RunToEnd({"--version"});
  EXPECT_EQ(ended.code, 0);
  EXPECT_THAT(ended.output, MatchesRegex("zuskux-hal [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(ZuskuxHalTest, ShowsItsHelpRatherThanItsVersion) {
  EXPECT_EQ(RunToEnd({"--version", "--help"}).output, RunToEnd({"--help"}).output);
}

TEST_F(ZuskuxHalTest, NamesBadUsage) {
  struct Case {
    std::vector<std::string> arguments;
    const char* complaint;
  };
  for (const Case& bad : {
           Case{{"table"}, "unknown command \"table\"; use tables, or none for the server"},
           Case{{"--table-size", "0"}, "--table-size 0 is out of range; use 1 to 4294967296"},
           Case{{"--max-payload", "-1"}, "--max-payload -1 is out of range; use 1 to 67108864"},
           Case{{"--max-payload", "0", "--table-size", "0"}, "--table-size 0 is out of range"},
           Case{{"--table-size", "x"}, "'x'"},
           Case{{"--sock", "x"}, "--sock"},
           Case{{"--json"}, "--json needs tables"},
           Case{{"--check", "--json"}, "--json needs tables"},
           Case{{"tables", "--quiet"}, "--quiet cannot be combined with tables"},
           Case{{"tables", "--quiet", "--record", "x", "--fault", "y"},
                "--fault cannot be combined with tables"},
           Case{{"tables", "--quiet", "--record", "x"}, "--record cannot be combined with tables"},
           Case{{"tables", "--keep", "1", "--audit", "1"},
                "--audit cannot be combined with tables"},
           Case{{"tables", "--print"}, "--print cannot be combined with tables"},
           Case{{"--check"}, "--check needs tables"},
           Case{{"tables", "--netns", "x"}, "--netns needs --interfaces SITE"},
           Case{{"tables", "--check"}, "--check needs --interfaces SITE"},
           Case{{"tables", "--check", "--json"}, "--check needs --interfaces SITE"},
           Case{{"tables", "--check", "--interfaces", "x", "--json"},
                "--json cannot be combined with --check"},
           Case{{"--print"}, "--print needs --data-plane linux"},
           Case{{"--data-plane", "bsd"}, "--data-plane \"bsd\" is unknown; use linux"},
           Case{{"--data-plane", "linux"}, "--data-plane needs --interfaces SITE"},
           Case{{"--data-plane", "linux", "--interfaces", "x", "--fault", "y"},
                "--fault cannot be combined with --data-plane"},
           Case{{"--data-plane", "linux", "--interfaces", "x", "--netns", "y", "--print"},
                "--netns cannot be combined with --print; run it in the namespace: ip netns exec "
                "NAME"},
           Case{{"tables", "more"}, "tables does not take \"more\""},
           Case{{"help", "tables"}, "unknown command \"help\"; use tables, or none for the server"},
       }) {
    const Ended ended = RunToEnd(bad.arguments);
    EXPECT_EQ(ended.code, 2);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, AllOf(StartsWith("zuskux-hal: "), HasSubstr(bad.complaint),
                                   HasSubstr("; see --help\n")));
  }
}

TEST_F(ZuskuxHalTest, NamesMistakesOfAFaultFile) {
  std::ofstream(Path("faults")) << "fault { what: \"delay\" }\nfault { }";
  const Ended ended = RunToEnd({"--socket", Path("hal.sock"), "--fault", Path("faults")});
  EXPECT_EQ(ended.code, 2);
  EXPECT_THAT(ended.error, AllOf(StartsWith("zuskux-hal: " + Path("faults") +
                                            ":1:1: what: \"delay\" has no ms; add ms: N\n"),
                                 HasSubstr(Path("faults") + ":2:1: a fault has no what")));
  EXPECT_FALSE(std::filesystem::exists(Path("hal.sock")));
}

TEST_F(ZuskuxHalTest, NamesMistakesOfASiteFile) {
  std::ofstream(Path("site")) << "interface { name: \"eth0\" }\n";
  const Ended ended = RunToEnd({"--socket", Path("hal.sock"), "--data-plane", "linux",
                                "--interfaces", Path("site"), "--print"});
  EXPECT_EQ(ended.code, 2);
  EXPECT_THAT(ended.error, StartsWith("zuskux-hal: " + Path("site") + ":1:1: "));
  EXPECT_FALSE(std::filesystem::exists(Path("hal.sock")));
}

TEST_F(ZuskuxHalTest, NamesMistakesOfASiteFileBeforeACheck) {
  const Ended ended =
      RunToEnd({"tables", "--socket", Path("hal.sock"), "--check", "--interfaces", Path("none")});
  EXPECT_EQ(ended.code, 2);
  EXPECT_THAT(ended.error, HasSubstr(Path("none")));
}

TEST_F(ZuskuxHalTest, DoesNotCompareSimulatedTablesWithTheKernel) {
  std::ofstream(Path("site")) << "interface { name: \"lo\" lim_id: 1 }\n";
  Process server(OutputFolder(), {"--socket", Path("hal.sock")});
  ASSERT_TRUE(server.Says("listening on "));
  for (const std::vector<std::string>& option :
       {std::vector<std::string>(), {"--check"}, {"--json"}}) {
    std::vector<std::string> arguments = {"tables", "--socket", Path("hal.sock"), "--interfaces",
                                          Path("site")};
    arguments.insert(arguments.end(), option.begin(), option.end());
    const Ended ended = RunToEnd(arguments);
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.error, "zuskux-hal: the server on " + Path("hal.sock") +
                               " does not program the kernel; leave out --interfaces\n");
  }
}

TEST_F(ZuskuxHalTest, PrintedCommandsAreNotThoseOfAKernel) {
  std::ofstream(Path("site")) << "interface { name: \"lo\" lim_id: 1 }\n";
  Process server(OutputFolder(), {"--socket", Path("hal.sock"), "--data-plane", "linux",
                                  "--interfaces", Path("site"), "--print"});
  ASSERT_TRUE(server.Says("listening on "));
  const Ended shown = RunToEnd({"tables", "--socket", Path("hal.sock")});
  EXPECT_EQ(shown.code, 0);
  EXPECT_THAT(shown.output, ::testing::Not(HasSubstr("kernel writes")));
  const Ended compared =
      RunToEnd({"tables", "--socket", Path("hal.sock"), "--check", "--interfaces", Path("site")});
  EXPECT_EQ(compared.code, 1);
  EXPECT_EQ(compared.output, "");
  EXPECT_EQ(compared.error, "zuskux-hal: the server on " + Path("hal.sock") +
                                " does not program the kernel; leave out --interfaces\n");
}

TEST_F(ZuskuxHalTest, TakesNoIntervalForNoAudit) {
  std::ofstream(Path("site")) << "interface { name: \"lo\" lim_id: 1 }\n";
  const Process server(OutputFolder(), {"--socket", Path("hal.sock"), "--data-plane", "linux",
                                        "--interfaces", Path("site"), "--print", "--audit", "0"});
  EXPECT_TRUE(server.Says("listening on ")) << server.Error();
}

TEST_F(ZuskuxHalTest, WarnsIfOtherMachinesCanReadItsPages) {
  const Process local(OutputFolder(), {"--socket", Path("a.sock"), "--http", "127.0.0.1:0"});
  ASSERT_TRUE(local.Says("http: listening on "));
  EXPECT_EQ(local.LevelOf("http: listening on "), "INFO");
  const Process remote(OutputFolder(),
                       {"--socket", Path("b.sock"), "--http", "0.0.0.0:0", "--http-allow-remote"});
  ASSERT_TRUE(remote.Says("http: listening on "));
  EXPECT_EQ(remote.LevelOf("http: listening on "), "WARNING");
}

TEST_F(ZuskuxHalTest, NeedsItsNetworkNamespace) {
  std::ofstream(Path("site")) << "interface { name: \"lo\" lim_id: 1 }\n";
  const Ended ended = RunToEnd({"--socket", Path("hal.sock"), "--data-plane", "linux",
                                "--interfaces", Path("site"), "--netns", "zuskux-test-none"});
  EXPECT_EQ(ended.code, 1);
  EXPECT_THAT(ended.error, HasSubstr("cannot open the network namespace zuskux-test-none"));
  EXPECT_FALSE(std::filesystem::exists(Path("hal.sock")));
}

TEST_F(ZuskuxHalTest, PrintsCommandsBeforeItAnswers) {
  std::ofstream(Path("site")) << "interface { name: \"lo\" lim_id: 16843009 }\n";
  Process server(OutputFolder(), {"--socket", Path("hal.sock"), "--data-plane", "linux",
                                  "--interfaces", Path("site"), "--print"});
  ASSERT_TRUE(server.Says("listening on "));
  RawClient client(Path("hal.sock"));
  client.Greet();
  encapsulation::VlanMessage vlan;
  vlan.set_vlan_destination_id(10);
  vlan.set_lim_id("\x01\x01\x01\x01");
  client.Send(5, 1, vlan.SerializeAsString());
  EXPECT_EQ(client.Receive(), Result(1, 0, 10));
  EXPECT_THAT(server.Output(), HasSubstr("ip -6 nexthop replace id 10 dev zd10 protocol 171\n"));
}

TEST_F(ZuskuxHalTest, ServesUntilItIsTerminated) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const std::string socket = Path("hal.sock");
    Process server(OutputFolder(), {"--socket", socket});
    ASSERT_TRUE(server.Says("listening on " + socket + ", generation 0x"));
    RawClient client(socket);
    EXPECT_TRUE(client.Greet());
    server.Signal(signal);
    EXPECT_EQ(server.Wait(), 0);
    EXPECT_TRUE(client.Ended());
    EXPECT_FALSE(std::filesystem::exists(socket));
    EXPECT_EQ(std::filesystem::file_size(socket + ".lock"), 0U) << "the lock file stays";
    EXPECT_EQ(server.Output(), "");
    EXPECT_THAT(server.Error(), MatchesRegex("zuskux-hal: listening on [^\n]*, generation "
                                             "0x[0-9a-f]{16}\n"
                                             "zuskux-hal: client 1: \"test\" connected\n"));
  }
}

TEST_F(ZuskuxHalTest, CreatesNoFolderForASocket) {
  const std::string folder = folder_.Path("nodir");
  const Ended ended = RunToEnd({"--socket", folder + "/x.sock"});
  EXPECT_EQ(ended.code, 1);
  EXPECT_THAT(ended.error, HasSubstr("there is no folder " + folder +
                                     " for the socket; create it first with mkdir " + folder));
  EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST_F(ZuskuxHalTest, KeepsQuiet) {
  Process server(OutputFolder(), {"--socket", Path("hal.sock"), "--quiet"});
  ASSERT_TRUE(server.Says("listening on "));
  { EXPECT_TRUE(RawClient(Path("hal.sock")).Greet()); }
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0);
  EXPECT_THAT(server.Error(), ::testing::Not(HasSubstr("client")));
}

TEST_F(ZuskuxHalTest, RefusesToBeTheSecond) {
  Process server(OutputFolder(), {"--socket", Path("hal.sock")});
  ASSERT_TRUE(server.Says("listening on "));
  const Ended second = RunToEnd({"--socket", Path("hal.sock")});
  EXPECT_EQ(second.code, 1);
  EXPECT_THAT(second.error,
              StartsWith("zuskux-hal: another program listens on " + Path("hal.sock")));
  EXPECT_TRUE(RawClient(Path("hal.sock")).Greet());
}

TEST_F(ZuskuxHalTest, ReplacesTheSocketOfAServerThatWasKilled) {
  {
    Process killed(OutputFolder(), {"--socket", Path("hal.sock")});
    ASSERT_TRUE(killed.Says("listening on "));
  }
  ASSERT_TRUE(std::filesystem::exists(Path("hal.sock")));
  Process server(OutputFolder(), {"--socket", Path("hal.sock")});
  ASSERT_TRUE(server.Says("listening on "));
  EXPECT_TRUE(RawClient(Path("hal.sock")).Greet());
}

TEST_F(ZuskuxHalTest, CrashesOnAFaultsRequest) {
  std::ofstream(Path("faults")) << "fault { what: \"crash-after\" nth: 2 }";
  Process server(OutputFolder(), {"--socket", Path("hal.sock"), "--fault", Path("faults")});
  ASSERT_TRUE(server.Says("listening on "));
  RawClient client(Path("hal.sock"));
  client.Greet();
  client.Send(FrameBytes(3, 1, "\x08\x07"));
  EXPECT_EQ(client.Receive(), Result(1, 0, 7));
  client.Send(FrameBytes(3, 2, "\x08\x08"));
  EXPECT_TRUE(client.Ended());
  EXPECT_EQ(server.Wait(), 70);
  EXPECT_THAT(server.Error(), HasSubstr("fault: crash-after on install-vrf, 1 of 1\n"));
}

class TablesTest : public ZuskuxHalTest {
 protected:
  TablesTest() : server_(OutputFolder(), {"--socket", Path("hal.sock")}) {
    EXPECT_TRUE(server_.Says("listening on "));
    RawClient client(Path("hal.sock"));
    client.Greet();
    client.Send(FrameBytes(5, 1, "\x18\xAC\x02") + FrameBytes(5, 2, "\x18\x05\x28\xDC\x0B") +
                FrameBytes(3, 3, "\x08\x07"));
    EXPECT_EQ(client.ReceiveFrames(3),
              (std::vector<RawFrame>{Result(1, 0, 300), Result(2, 0, 5), Result(3, 0, 7)}));
    EXPECT_TRUE(server_.Says("client 1: "));
  }

  Process server_;
};

TEST_F(TablesTest, AreShownAsText) {
  const Ended ended = RunToEnd({"tables", "--socket", Path("hal.sock")});
  EXPECT_EQ(ended.code, 0);
  EXPECT_EQ(ended.error, "");
  EXPECT_THAT(ended.output,
              MatchesRegex("generation 0x[0-9a-f]{16}, up [0-9]+ ms, 3 requests, 2 connections "
                           "\\(0 refused\\)\n"
                           "vrf 1, vlan 2, host 0, ecmp 0, mpls 0\n"
                           "vrf 7: vrf_id: 7\n"
                           "vlan 5: vlan_destination_id: 5 mtu: 1500\n"
                           "vlan 300: vlan_destination_id: 300\n"));
}

TEST_F(TablesTest, FailIfTheyCannotBeWritten) {
  const std::string folder = OutputFolder();
  std::filesystem::create_symlink("/dev/full", folder + "/stdout");
  Process tables(folder, {"tables", "--socket", Path("hal.sock")});
  EXPECT_EQ(tables.Wait(), 1);
  EXPECT_THAT(tables.Error(), HasSubstr("cannot write to standard output"));
}

TEST_F(TablesTest, AreShownAsJson) {
  const Ended ended = RunToEnd({"tables", "--json", "--socket", Path("hal.sock")});
  EXPECT_EQ(ended.code, 0);
  const auto json = nlohmann::json::parse(ended.output);
  EXPECT_THAT(json.at("generation").get<std::string>(), MatchesRegex("0x[0-9a-f]{16}"));
  EXPECT_THAT(server_.Error(), HasSubstr(json.at("generation").get<std::string>()));
  EXPECT_LT(ended.output.find("uptime_ms"), ended.output.find("requests")) << "in the text's order";
  EXPECT_EQ(json.at("requests"), 3);
  EXPECT_EQ(json.at("connections"), 2);
  EXPECT_EQ(json.at("refused_connections"), 0);
  EXPECT_TRUE(json.at("uptime_ms").is_number_unsigned());
  const auto& vlans = json.at("tables").at("vlan");
  EXPECT_EQ(vlans.at("count"), 2);
  EXPECT_THAT(vlans.at("digest").get<std::string>(), MatchesRegex("0x[0-9a-f]{16}"));
  EXPECT_EQ(vlans.at("entries"), nlohmann::json::parse(R"([
              {"id": 5, "fields": {"vlan_destination_id": 5, "mtu": 1500}},
              {"id": 300, "fields": {"vlan_destination_id": 300}}])"));
  EXPECT_EQ(
      json.at("tables").at("mpls"),
      nlohmann::json::parse(R"({"count": 0, "digest": "0x0000000000000000", "entries": []})"));
}

/// A server with tables of 100,000 entries; measures how its memory grows from there.
class ReadersMemoryTest : public ZuskuxHalTest {
 protected:
  ReadersMemoryTest()
      : server_(OutputFolder(),
                {"--socket", Path("hal.sock"), "--quiet", "--table-size", "200000"}) {
    EXPECT_TRUE(server_.Says("listening on"));
    writer_ = Client();
    for (std::uint32_t id = 0x8000; id < 0x8000 + 100'000;) {
      std::string requests;
      for (int i = 0; i < 1'000; ++i, ++id) {
        std::string vlan = "\x18";
        vlan += static_cast<char>(0x80 | (id & 0x7F));
        vlan += static_cast<char>(0x80 | (id >> 7 & 0x7F));
        vlan += static_cast<char>(id >> 14);
        requests += FrameBytes(5, id, vlan);
      }
      EXPECT_TRUE(writer_->Send(requests));
      EXPECT_EQ(writer_->ReceiveFrames(1'000).back(), Result(id - 1, 0, id - 1));
    }
    before_ = server_.PeakMemory();
  }

  std::unique_ptr<RawClient> Client() {
    auto client = std::make_unique<RawClient>(Path("hal.sock"));
    EXPECT_TRUE(client->Greet());
    return client;
  }

  // The growth of the memory in KiB, once the server has done all that it can without waiting.
  int Growth() {
    for (std::uint32_t beat = 0; beat < 20; ++beat) {
      EXPECT_TRUE(writer_->Send(20, beat));
      EXPECT_EQ(writer_->Receive(), (RawFrame{20, beat, ""}));
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return server_.PeakMemory() - before_;
  }

  // In KiB. ThreadSanitizer takes several times the memory of the program; twenty copies of the
  // tables take more than 60 MiB without it.
  static constexpr int kAlmostNone = (ZUSKUX_THREAD_SANITIZER ? 20 : 10) * 1024;

  Process server_;
  std::unique_ptr<RawClient> writer_;
  int before_ = 0;
};

TEST_F(ReadersMemoryTest, TwentyReadersTakeAlmostNone) {
  std::vector<std::unique_ptr<RawClient>> readers;
  for (int i = 0; i < 20; ++i) {
    readers.push_back(Client());
    EXPECT_TRUE(readers.back()->Send(21, 1));
  }
  EXPECT_LT(Growth(), kAlmostNone);
}

TEST_F(ReadersMemoryTest, ReadingsInOneWriteTakeAlmostNone) {
  const auto reader = Client();
  std::string readings;
  for (std::uint32_t reading = 0; reading < 6'000; ++reading) readings += FrameBytes(21, reading);
  EXPECT_TRUE(reader->Send(readings));
  EXPECT_LT(Growth(), kAlmostNone);
  // It waits for its client and has not been closed.
  EXPECT_EQ(reader->Receive()->type, 22);
}

TEST_F(ZuskuxHalTest, TablesNeedAServer) {
  for (const std::string& path : {Path("none.sock"), std::string(200, 'x')}) {
    const Ended ended = RunToEnd({"tables", "--socket", path});
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error,
                AllOf(StartsWith("zuskux-hal: the HAL server on " + path + ": cannot connect: "),
                      HasSubstr("; check that zuskux-hal runs and that this is its socket\n")));
  }
}

}  // namespace
}  // namespace reference
