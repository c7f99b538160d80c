// Whatever text the programs get from files, command lines and peers, they write nothing that
// controls a terminal. All of the tests' own texts are ASCII, so all output must be too.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>
#include <string>
#include <vector>

#include "tests/manager/process.h"
#include "tests/socket_client/fake_server.h"

namespace reference {
namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::HasSubstr;

struct Foreign {
  const char* name;
  std::string bytes;
  std::string shown;
};

class ForeignTextTest : public ::testing::TestWithParam<Foreign> {
 protected:
  static std::string Hostile() { return 'x' + GetParam().bytes + 'y'; }
  // How the programs show it.
  static std::string Shown() { return 'x' + GetParam().shown + 'y'; }

  std::string FileNamed(const std::string& name) const { return files_.File(name); }
  std::string Write(const std::string& name, const std::string& text) const {
    return files_.Write(name, text);
  }

  const ScratchDirectory files_{};
};

void ExpectSafe(const std::string& text) {
  for (const char byte : text) {
    const bool safe = byte == '\n' || (' ' <= byte && byte <= '~');
    EXPECT_TRUE(safe) << text;
    if (!safe) return;
  }
}

// The standard output and standard error of a program that has ended.
std::string OutputOf(Process* process) {
  process->Wait();
  const std::string output = process->out() + process->err();
  ExpectSafe(output);
  return output;
}

std::string OutputOf(std::vector<std::string> words) {
  Process process(std::move(words));
  return OutputOf(&process);
}

// A HAL server whose every text is the foreign one.
class ForeignServer : public FakeServer {
 public:
  explicit ForeignServer(std::string text) : text_(std::move(text)) {}

  void GreetForeign() {
    wire::Hello hello;
    hello.set_protocol_version(kProtocolVersion);
    hello.set_program(text_);
    hello.set_generation(7);
    hello.set_table_capacity(1000);
    hello.set_max_payload(kDefaultMaxPayload);
    SendFrame(FrameType::kHello, 0, hello.SerializeAsString());
  }

  void SendTables() {
    EXPECT_EQ(Next().type, FrameType::kReadTables);
    wire::ServerStatus status;
    status.add_kinds()->set_kind(text_);
    SendFrame(FrameType::kTableEnd, 0, status.SerializeAsString());
  }

 private:
  const std::string text_;
};

TEST_P(ForeignTextTest, CheckShowsNamesOfTheFileSafely) {
  const std::string site =
      Write("site", "interface { name: \"" + Hostile() +
                        "\" lim_id: 1 }\nvlan { id: 1 name: \"a\" interface: \"none\" }\n");
  EXPECT_THAT(OutputOf({ZUSKUX_MANAGER, "--check", site}),
              AllOf(HasSubstr("or use one of: " + Shown()), HasSubstr('"' + Shown() + '"')));
}

TEST_P(ForeignTextTest, CheckShowsFileNamesSafely) {
  const std::string good = Write(Hostile(), "vrf { id: 1 name: \"a\" vrf_id: 1 }\n");
  EXPECT_THAT(OutputOf({ZUSKUX_MANAGER, "--check", good}), HasSubstr(Shown() + ": 1 object"));
  const std::string bad = Write("b" + Hostile(), "vrf { }\n");
  EXPECT_THAT(OutputOf({ZUSKUX_MANAGER, "--check", bad}), HasSubstr(Shown() + ":1:1: vrf has no"));
}

TEST_P(ForeignTextTest, CheckShowsSyntaxErrorsSafely) {
  const std::string site = Write("site", "vlan { \"" + Hostile() + "\" }\n");
  EXPECT_THAT(OutputOf({ZUSKUX_MANAGER, "--check", site}), HasSubstr("site:1:"));
}

TEST_P(ForeignTextTest, ExplainShowsTheArgumentSafely) {
  const std::string site = Write("site", "vrf { id: 1 name: \"a\" vrf_id: 1 }\n");
  EXPECT_THAT(OutputOf({ZUSKUX_MANAGER, site, "--explain", "vrf:1" + Hostile()}),
              HasSubstr("vrf:1" + Shown()));
}

TEST_P(ForeignTextTest, GraphShowsTheFileSafely) {
  const std::string site = Write("site", "vrf { id: 1 name: \"a\" vrf_id: 1 }\n");
  const std::string graph = FileNamed("none" + Hostile()) + "/a.dot";
  EXPECT_THAT(OutputOf({ZUSKUX_MANAGER, site, "--graph", graph}), HasSubstr(Shown()));
}

TEST_P(ForeignTextTest, PlanShowsWhatTheServerSaysSafely) {
  const std::string site = Write("site", "vrf { id: 1 name: \"a\" vrf_id: 1 }\n");
  ForeignServer server(Hostile());
  Process plan({ZUSKUX_MANAGER, site, "--plan", "--hal", "unix:" + server.path()});
  server.Accept();
  server.SendFrame(FrameType::kGoodbye, 0, Hostile());
  EXPECT_THAT(OutputOf(&plan), HasSubstr("it says " + Shown()));
}

TEST_P(ForeignTextTest, TheManagerShowsTheServersNameSafely) {
  const std::string site = Write("site", "vrf { id: 1 name: \"a\" vrf_id: 1 }\n");
  ForeignServer server(Hostile());
  Process manager({ZUSKUX_MANAGER, site, "--hal", "unix:" + server.path()});
  server.Accept();
  server.GreetForeign();
  EXPECT_TRUE(manager.WaitForError(Shown())) << manager.err();
  ExpectSafe(manager.err());
}

TEST_P(ForeignTextTest, StatusShowsWhatTheManagerSaysSafely) {
  namespace asio = boost::asio;
  asio::io_context io;
  const std::string path = FileNamed("control");
  asio::local::stream_protocol::acceptor acceptor(io, path);
  for (const bool json : {false, true}) {
    std::vector<std::string> words = {ZUSKUX_MANAGER, "status", "--control", path};
    if (json) words.emplace_back("--json");
    Process status(words);
    auto socket = acceptor.accept();
    asio::write(socket, asio::buffer(R"({"status": {"program": ")" + Hostile() +
                                     "\"}, \"exit_status\": 0}\n"));
    socket.close();
    OutputOf(&status);
  }
}

TEST_P(ForeignTextTest, TablesShowWhatTheServerSaysSafely) {
  for (const bool json : {false, true}) {
    ForeignServer server(Hostile());
    std::vector<std::string> words = {ZUSKUX_HAL, "tables", "--socket", server.path()};
    if (json) words.emplace_back("--json");
    Process tables(words);
    server.Accept();
    server.GreetForeign();
    server.SendTables();
    // Text that is not UTF-8 does not decode.
    EXPECT_THAT(OutputOf(&tables), AnyOf(HasSubstr(json ? "\"digest\"" : Shown() + " 0"),
                                         HasSubstr("its answer does not decode")));
  }
}

TEST_P(ForeignTextTest, TablesShowTheSocketSafely) {
  EXPECT_THAT(OutputOf({ZUSKUX_HAL, "tables", "--socket", FileNamed(Hostile())}),
              HasSubstr(Shown()));
}

TEST_P(ForeignTextTest, TheServerShowsFaultFilesSafely) {
  const std::string faults = Write("faults", "fault { what: \"" + Hostile() + "\" }\n");
  EXPECT_THAT(OutputOf({ZUSKUX_HAL, "--socket", FileNamed("s"), "--fault", faults}),
              HasSubstr("unknown what \"" + Shown()));
}

TEST_P(ForeignTextTest, RecordingsAreNamedSafely) {
  EXPECT_THAT(OutputOf({ZUSKUX_RECORD, "show", FileNamed(Hostile())}), HasSubstr(Shown()));
}

INSTANTIATE_TEST_SUITE_P(Texts, ForeignTextTest,
                         ::testing::Values(Foreign{"Escape", "\x1b[2J", R"(\x1b[2J)"},
                                           Foreign{"Return", "\r", R"(\r)"},
                                           Foreign{"ControlSequence", "\u009b2J", R"(\u009b2J)"},
                                           Foreign{"Override", "\u202e", R"(\u202e)"},
                                           Foreign{"Isolate", "\u2067", R"(\u2067)"},
                                           Foreign{"NotUtf8", "\xff", R"(\xff)"}),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
}  // namespace reference
