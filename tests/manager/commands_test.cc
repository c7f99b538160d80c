// The commands that ask a running zuskux-manager, as an operator uses them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/asio/local/stream_protocol.hpp>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/manager/process.h"
#include "tests/support/terminal.h"

namespace reference {
namespace {

using testing::HasSubstr;
using testing::Not;
using Json = nlohmann::json;
using Words = std::vector<std::string>;

constexpr char kTime[] = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";

// A VLAN for each id from 10, and a host on the last one.
std::string Site(int vlans) {
  std::string text = "interface { name: \"eth0\" lim_id: 1 }\n";
  for (int id = 10; id < 10 + vlans; ++id) {
    text += "vlan { id: " + std::to_string(id) + " name: \"v" + std::to_string(id) +
            "\" interface: \"eth0\" }\n";
  }
  return text + R"(host { id: 5000 name: "h" interface: "eth0" vlan: "v)" +
         std::to_string(9 + vlans) + "\" }\n";
}

class CommandsTest : public testing::Test {
 protected:
  // Starts a manager and waits until it has settled, or has reported that it cannot.
  void Start(const std::string& site, const Words& options = {}) {
    Words words = {ZUSKUX_MANAGER, files_.Write("site", site), "--stay", "--control", control()};
    words.insert(words.end(), options.begin(), options.end());
    manager_ = std::make_unique<Process>(words);
    ASSERT_TRUE(manager_->WaitForError("settled: "));
  }

  // SIGTERM ends a manager that stays; it exits by itself.
  void TearDown() override {
    if (manager_ == nullptr || !manager_->Runs()) return;
    manager_->Signal(SIGTERM);
    EXPECT_NE(manager_->Wait(), -1);
  }

  void StartServer(const std::string& faults = "") {
    server_ = std::make_unique<Process>(
        Words{ZUSKUX_HAL, "--socket", socket(), "--fault", files_.Write("faults", faults)});
    ASSERT_TRUE(server_->WaitForError("listening on"));
  }

  Outcome Ask(Words words) const {
    words.insert(words.begin(), ZUSKUX_MANAGER);
    words.insert(words.end(), {"--control", control()});
    return Execute(words);
  }

  // Starts a client that follows the events. The manager drops events until the client follows, so
  // this reloads new sites until the client shows one. Its first reload may be incomplete.
  std::unique_ptr<Process> Follow() {
    auto events =
        std::make_unique<Process>(Words{ZUSKUX_MANAGER, "events", "--control", control()});
    for (int vlans = 2; vlans < 50 && events->out().empty(); ++vlans) {
      files_.Write("site", Site(vlans));
      EXPECT_EQ(Ask({"reload"}).status, 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    EXPECT_NE(events->out(), "");
    return events;
  }

  Json Tables() const {
    return Json::parse(Execute({ZUSKUX_HAL, "tables", "--socket", socket(), "--json"}).out);
  }

  std::string site() const { return files_.File("site"); }
  std::string control() const { return files_.File("manager.sock"); }
  std::string socket() const { return files_.File("hal.sock"); }

  ScratchDirectory files_;
  std::unique_ptr<Process> server_;
  std::unique_ptr<Process> manager_;
};

TEST_F(CommandsTest, StatusCountsTheAudits) {
  StartServer();
  Start(Site(3), {"--hal", "unix:" + socket(), "--audit", "1"});
  Json audits;
  for (int i = 0; i < 2'000 && audits["count"] != 2; ++i) {
    audits = Json::parse(Ask({"status", "--json"}).out)["audits"];
  }
  EXPECT_GE(audits["count"], 2);
  EXPECT_EQ(audits["with_differences"], 0);
  EXPECT_EQ(audits["last_difference"], "");
  const Outcome status = Ask({"status"});
  EXPECT_EQ(status.status, 0);
  EXPECT_THAT(status.out, testing::ContainsRegex(std::string("\naudits [0-9]+, last ") + kTime +
                                                 ", with differences 0\n"));
  EXPECT_THAT(manager_->err(), testing::Not(HasSubstr("reinstall")));
}

TEST_F(CommandsTest, StatusFollowsTheConnection) {
  StartServer();
  Start(Site(1), {"--hal", "unix:" + socket()});
  const Outcome up = Ask({"status"});
  EXPECT_EQ(up.status, 0);
  EXPECT_THAT(up.out, testing::ContainsRegex(std::string("connection up since ") + kTime +
                                             ", server zuskux-hal [0-9.]+, generation "
                                             "0x[0-9a-f]{16}, last in sync " +
                                             kTime + "\n"));
  const Json json = Json::parse(Ask({"status", "--json"}).out);
  EXPECT_EQ(json["connection"]["up"], true);
  EXPECT_EQ(json["connection"]["generation"], Tables()["generation"]);
  EXPECT_EQ(json["refused_reload"], nullptr);
  EXPECT_EQ(json["audits"]["count"], 0);

  server_->Signal(SIGKILL);
  server_->Wait();
  ASSERT_TRUE(manager_->WaitForError("HAL server lost"));
  // The connection's thread logs before the manager's learns of it.
  Outcome down = Ask({"status"});
  for (int i = 0; i < 1000 && down.status != 4; ++i) down = Ask({"status"});
  EXPECT_EQ(down.status, 4);
  EXPECT_THAT(down.out, testing::ContainsRegex(std::string("connection down since ") + kTime +
                                               ", last in sync " + kTime + "\n"));
  for (const char* const command : {"objects", "graph"}) {
    const Outcome last_known = Ask({command});
    EXPECT_EQ(last_known.status, 4);
    EXPECT_EQ(last_known.err,
              "zuskux-manager: there is no connection to the HAL; these are the last known or the "
              "initial states\n");
  }
  const Outcome explained = Ask({"explain", "vlan:10"});
  EXPECT_EQ(explained.status, 4);
  EXPECT_THAT(explained.out, HasSubstr("There is no connection to the HAL"));
  const Outcome resync = Ask({"resync"});
  EXPECT_EQ(resync.status, 4);
  EXPECT_THAT(resync.err, HasSubstr("zuskux-manager: there is no connection to the HAL"));
  const Outcome audit = Ask({"audit"});
  EXPECT_EQ(audit.status, 4);
  EXPECT_EQ(audit.err, "zuskux-manager: there is no connection to the HAL\n");
  EXPECT_EQ(Ask({"reload"}).status, 4);
}

TEST_F(CommandsTest, ObjectsMatchTheTable) {
  Start(Site(600));
  const Outcome all = Ask({"objects", "--json"});
  EXPECT_EQ(all.status, 0) << all.err;
  const Outcome table = Execute({ZUSKUX_MANAGER, site(), "--json"});
  EXPECT_EQ(all.out, table.out);
  EXPECT_EQ(Ask({"objects"}).out, Execute({ZUSKUX_MANAGER, site()}).out);
  EXPECT_EQ(Ask({"objects", "--kind", "host"}).out,
            "KIND  ID    NAME  STATE      REASON\n"
            "host  5000  h     installed\n"
            "\n"
            "installed  The HAL has confirmed that it holds the object.\n"
            "601 objects: 601 installed\n");
  EXPECT_EQ(Ask({"objects", "--failed"}).out, "601 objects: 601 installed\n");
}

TEST_F(CommandsTest, ShowsAndExplainsWhatFailed) {
  Start(Site(2), {"--table-size", "1"});
  EXPECT_EQ(Ask({"status"}).status, 3);
  const Outcome failed = Ask({"objects", "--failed"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.out,
            "KIND  ID    NAME  STATE      REASON\n"
            "vlan  11    v11   failed     table full\n"
            "host  5000  h     failed     a destination that it refers to does not exist in the "
            "HAL\n"
            "\n"
            "failed     The HAL refused it, gave no answer, or lost it since; see REASON.\n"
            "3 objects: 1 installed, 2 failed\n");
  const Outcome host = Ask({"explain", "host:5000"});
  EXPECT_EQ(host.status, 3);
  EXPECT_EQ(host.out,
            "host:5000 \"h\" failed: a destination that it refers to does not exist in the HAL\n"
            "  it rides on vlan:11 \"v11\", which failed: table full\n");
  const Outcome vlan = Ask({"explain", "vlan:10"});
  EXPECT_EQ(vlan.status, 0) << "the status is about the object that was asked for";
  EXPECT_EQ(vlan.out, "vlan:10 \"v10\" is installed\n");
  const Outcome unknown = Ask({"explain", "vlan:12"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.err,
            "zuskux-manager: there is no vlan:12; zuskux-manager objects lists all of them\n");
}

TEST_F(CommandsTest, DrawsAllObjectsOrThoseAroundOne) {
  Start(Site(3));
  const std::string file = files_.File("graph.dot");
  ASSERT_EQ(Execute({ZUSKUX_MANAGER, site(), "--graph", file}).status, 0);
  const Outcome all = Ask({"graph"});
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(all.out, ReadText(file));
  // The host, and the VLAN that it rides on.
  for (const char* const object : {"host:5000", "vlan:12"}) {
    const Outcome one = Ask({"graph", object});
    EXPECT_EQ(one.status, 0);
    EXPECT_THAT(one.out, HasSubstr(R"("host:5000" -> "vlan:12";)"));
    EXPECT_THAT(one.out, Not(HasSubstr("\"vlan:10\"")));
  }
  EXPECT_THAT(Ask({"graph", "vlan:11"}).out, Not(HasSubstr("\"host:5000\"")));
  // The host moves to VLAN 11, and VLAN 12 goes.
  files_.Write("site", Site(2));
  ASSERT_EQ(Ask({"reload"}).status, 0);
  ASSERT_TRUE(manager_->WaitForError("settled: 4 objects: 3 installed, 1 removed\n"));
  EXPECT_THAT(Ask({"graph"}).out, Not(HasSubstr("\"vlan:12\"")));
  const Outcome none = Ask({"graph", "vlan:9"});
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.err,
            "zuskux-manager: there is no vlan:9; zuskux-manager objects lists all of them\n");
}

TEST_F(CommandsTest, QueriesSendNothingToTheHal) {
  StartServer();
  Start(Site(3), {"--hal", "unix:" + socket()});
  const Json before = Tables()["requests"];
  for (const Words& words : {Words{"status"}, Words{"objects"}, Words{"explain", "vlan:10"},
                             Words{"graph"}, Words{"audit"}}) {
    EXPECT_EQ(Ask(words).status, 0);
  }
  EXPECT_EQ(Tables()["requests"], before);
}

TEST_F(CommandsTest, ReloadReadsTheSiteAgain) {
  Start(Site(15));
  files_.Write("site", Site(16));
  const Outcome more = Ask({"reload"});
  EXPECT_EQ(more.status, 0) << more.err;
  ASSERT_TRUE(manager_->WaitForError("settled: 17 objects: 17 installed\n"));

  files_.Write("site", "vlan {");
  const Outcome mistakes = Ask({"reload"});
  EXPECT_EQ(mistakes.status, 3);
  EXPECT_EQ(mistakes.err, "zuskux-manager: keeping the current site; correct " + site() +
                              "; zuskux-manager --check " + site() + " lists its mistakes\n");
  EXPECT_THAT(Ask({"status"}).out, testing::ContainsRegex(std::string("last reload refused ") +
                                                          kTime + ": keeping the current site; "));
}

// Whatever the number of objects.
TEST_F(CommandsTest, AnEmptyFileRemovesNothing) {
  Start(Site(1));
  files_.Write("site", "");
  EXPECT_EQ(Ask({"reload"}).status, 3);
  EXPECT_EQ(Ask({"objects"}).status, 0);
  EXPECT_THAT(Ask({"objects"}).out, HasSubstr("2 objects: 2 installed\n"));
}

// The refusal's advice works as written.
TEST_F(CommandsTest, ReloadRemovesMuchOnlyOnRequest) {
  Start(Site(15));
  files_.Write("site", "object_count: 0");
  const Outcome refused = Ask({"reload"});
  EXPECT_EQ(refused.status, 3);
  EXPECT_THAT(refused.err, HasSubstr("would remove 16 of 16 objects: "));
  EXPECT_EQ(Ask({"objects", "--failed"}).out, "16 objects: 16 installed\n");
  const std::string advice = "run zuskux-manager reload ";
  const std::size_t place = refused.err.find(advice);
  ASSERT_NE(place, std::string::npos) << refused.err;
  const Outcome told = Execute({"/bin/bash", "-c",
                                std::string("exec ") + ZUSKUX_MANAGER + " reload " +
                                    refused.err.substr(place + advice.size())});
  EXPECT_EQ(told.status, 0) << told.err;
  ASSERT_TRUE(manager_->WaitForError("settled: 16 objects: 16 removed\n"));
}

TEST_F(CommandsTest, ResyncInstallsEverythingAgain) {
  StartServer();
  Start(Site(3), {"--hal", "unix:" + socket()});
  const Outcome resync = Ask({"resync"});
  EXPECT_EQ(resync.status, 0) << resync.err;
  ASSERT_TRUE(manager_->WaitForError("in sync after", 2));
  ASSERT_TRUE(manager_->WaitForError("reinstall finished: 4 objects in "));
  ASSERT_TRUE(manager_->WaitForError("settled: 4 objects: 4 installed\n", 2));
  EXPECT_EQ(Tables()["requests"], 8);
}

TEST_F(CommandsTest, AuditComparesWithTheHal) {
  StartServer();
  Start("vrf { id: 1 name: \"red\" vrf_id: 7 }\n" + Site(3), {"--hal", "unix:" + socket()});
  const Outcome same = Ask({"audit"});
  EXPECT_EQ(same.status, 0) << same.err;
  EXPECT_EQ(same.out, "5 entries in the manager, 5 in the HAL, 0 differences\n");
}

// From the third request on, the server reports success without applying the request.
TEST_F(CommandsTest, AuditShowsEveryDifference) {
  StartServer(R"(fault { what: "answer" of: "vlan" code: 0 nth: 3 times: 100 })");
  const std::string interface = "interface { name: \"eth0\" lim_id: 1 }\n";
  const auto vlan = [](const std::string& id, const std::string& more) {
    return "vlan { id: " + id + " name: \"v" + id + "\" interface: \"eth0\" " + more + "}\n";
  };
  Start(interface + vlan("10", "") + vlan("11", ""), {"--hal", "unix:" + socket()});
  files_.Write("site", interface + vlan("10", "mtu: 1400 ") + vlan("12", ""));
  ASSERT_EQ(Ask({"reload"}).status, 0);
  ASSERT_TRUE(manager_->WaitForError("settled: 3 objects: 2 installed, 1 removed\n"));
  const Outcome audit = Ask({"audit"});
  EXPECT_EQ(audit.status, 3);
  EXPECT_EQ(audit.out,
            "differs  vlan 10  v10\n"
            "missing  vlan 12  v12\n"
            "unknown  vlan 11\n"
            "2 entries in the manager, 2 in the HAL, 3 differences\n");
  EXPECT_EQ(audit.err, "");
}

// The server refuses the third request of a VLAN, and those that follow.
TEST_F(CommandsTest, AuditShowsWhatCouldNotBeRemoved) {
  StartServer(R"(fault { what: "answer" of: "vlan" code: 7 nth: 3 times: 100 })");
  const std::string ten =
      "interface { name: \"eth0\" lim_id: 1 }\nvlan { id: 10 name: \"v10\" interface: \"eth0\" }\n";
  Start(ten + "vlan { id: 11 name: \"v11\" interface: \"eth0\" }\n", {"--hal", "unix:" + socket()});
  files_.Write("site", ten);
  ASSERT_EQ(Ask({"reload"}).status, 0);
  ASSERT_TRUE(manager_->WaitForError("settled: 2 objects: 1 installed, 1 failed\n"));
  const Outcome audit = Ask({"audit"});
  EXPECT_EQ(audit.status, 3);
  EXPECT_EQ(audit.out,
            "unknown  vlan 11\n"
            "1 entry in the manager, 2 in the HAL, 1 difference\n");
}

TEST_F(CommandsTest, AuditSaysThatTheManagerIsAtWork) {
  StartServer(R"(fault { what: "swallow" of: "vlan" nth: 2 times: 100 })");
  Start(Site(1), {"--hal", "unix:" + socket()});
  files_.Write("site", Site(2));
  ASSERT_EQ(Ask({"reload"}).status, 0);
  const Outcome audit = Ask({"audit"});
  EXPECT_THAT(audit.err,
              HasSubstr("the manager is at work; differences may be requests in flight"));
}

TEST_F(CommandsTest, AuditNeedsAServer) {
  Start(Site(1));
  const Outcome audit = Ask({"audit"});
  EXPECT_EQ(audit.status, 1);
  EXPECT_EQ(audit.err,
            "zuskux-manager: the HAL is in the manager's own process, so there is nothing to "
            "compare with\n");
}

TEST_F(CommandsTest, EventsFollowTheManager) {
  Start(Site(1), {"--table-size", "50"});
  const std::unique_ptr<Process> events = Follow();
  files_.Write("site", Site(100));
  ASSERT_EQ(Ask({"reload"}).status, 0);
  EXPECT_TRUE(events->WaitForOutput("applying " + site() + "\n")) << events->out();
  EXPECT_TRUE(events->WaitForOutput("vlan:20 \"v20\" installed\n")) << events->out();
  EXPECT_TRUE(events->WaitForOutput("vlan:108 \"v108\" failed: table full\n")) << events->out();
  files_.Write("site", "vlan {");
  Ask({"reload"});
  EXPECT_TRUE(events->WaitForOutput("reload refused: keeping the current site")) << events->out();
  manager_->Signal(SIGTERM);
  EXPECT_EQ(manager_->Wait(), 3);
  EXPECT_EQ(events->Wait(), 1);
  EXPECT_THAT(events->err(), HasSubstr("the answer ends early"));
}

TEST_F(CommandsTest, EventsFollowTheConnection) {
  StartServer();
  Start(Site(1), {"--hal", "unix:" + socket()});
  const std::unique_ptr<Process> events = Follow();
  EXPECT_THAT(manager_->err(), Not(HasSubstr("reinstall"))) << "following must send nothing";
  server_->Signal(SIGKILL);
  server_->Wait();
  EXPECT_TRUE(events->WaitForOutput("HAL server lost\n")) << events->out();
  StartServer();
  EXPECT_TRUE(events->WaitForOutput("in sync\n")) << events->out();
  EXPECT_THAT(events->out(), testing::ContainsRegex("\nconnected to HAL server zuskux-hal [0-9.]+, "
                                                    "generation 0x[0-9a-f]{16}\n"));
}

TEST_F(CommandsTest, OtherRequestsAreAnsweredWithAnError) {
  Start(Site(1));
  struct Case {
    const char* request;
    const char* error;
  };
  for (const Case& wrong :
       {Case{"status", "the request is not valid: "}, Case{"{}", "the request is not valid: "},
        Case{R"({"request":"objects","kind":7})", "the request is not valid: "},
        Case{R"({"request":"dance"})",
             "this manager does not know the request dance; it may be older than the command"}}) {
    using boost::asio::local::stream_protocol;
    stream_protocol::iostream stream(stream_protocol::endpoint{control()});
    stream << wrong.request << '\n' << std::flush;
    std::string line;
    ASSERT_TRUE(std::getline(stream, line)) << wrong.request;
    const Json answer = Json::parse(line);
    EXPECT_EQ(answer["exit_status"], 1) << wrong.request;
    EXPECT_THAT(answer["error"].get<std::string>(), testing::StartsWith(wrong.error));
  }
  EXPECT_EQ(Ask({"status"}).status, 0);
}

// The next screen that the command draws on the terminal.
std::string NextPicture(const Terminal& terminal) {
  std::string picture = terminal.ReadUntil("\x1b[J\x1b[?7h");
  EXPECT_THAT(picture, testing::StartsWith("\x1b[?7l\x1b[Hzuskux-manager "));
  return picture;
}

TEST_F(CommandsTest, WatchRedrawsATerminal) {
  Start(Site(2), {"--table-size", "1"});
  const Terminal terminal(80);
  Process watch({ZUSKUX_MANAGER, "watch", "--control", control()}, Process::kToFile,
                terminal.program());
  const std::string picture = NextPicture(terminal);
  EXPECT_THAT(picture, HasSubstr(", some objects failed\x1b[K\nsite " + site() + "\x1b[K\n"));
  EXPECT_THAT(picture,
              HasSubstr("\nhost        0          0         0     0       1        0\x1b[K"));
  EXPECT_THAT(picture,
              HasSubstr("\x1b[K\n"
                        "KIND  ID    NAME  STATE      REASON\x1b[K\n"
                        "vlan  11    v11   failed     table full\x1b[K\n"
                        "host  5000  h     failed     a destination that it refers to does not "
                        "exist in the HAL\x1b[K\n"
                        "\x1b[K\n"
                        "failed     The HAL refused it, gave no answer, or lost it since; see "
                        "REASON.\x1b[K\n"
                        "\x1b[J"));
  files_.Write("site", Site(1));
  ASSERT_EQ(Ask({"reload"}).status, 0);
  std::string later;
  for (int i = 0; i < 60 && later.find(", settled\x1b[K\n") == std::string::npos; ++i) {
    later = NextPicture(terminal);
  }
  EXPECT_THAT(later, HasSubstr(", settled\x1b[K\n"));
  EXPECT_THAT(later, Not(HasSubstr("NAME")));
  watch.Signal(SIGINT);
  EXPECT_EQ(watch.Wait(), 0);
  EXPECT_EQ(watch.err(), "");
}

TEST_F(CommandsTest, WatchFitsTheTerminal) {
  Start(Site(4), {"--table-size", "1"});
  struct Case {
    unsigned short lines;
    std::size_t drawn;
    bool counts_others;
  };
  // Three VLANs and the host failed: one has a line, the others are counted.
  for (const Case& screen : {Case{18, 17, true}, Case{17, 16, false}, Case{5, 4, false}}) {
    const Terminal terminal(200, screen.lines);
    const Process watch({ZUSKUX_MANAGER, "watch", "--control", control()}, Process::kToFile,
                        terminal.program());
    const std::string picture = NextPicture(terminal);
    EXPECT_EQ(static_cast<std::size_t>(std::count(picture.begin(), picture.end(), '\n')),
              screen.drawn);
    EXPECT_EQ(picture.find("\nand 3 more\x1b[K\n") != std::string::npos, screen.counts_others)
        << picture;
  }
}

TEST_F(CommandsTest, WatchBreaksLongLines) {
  Start(Site(2), {"--table-size", "1"});
  const std::string wide = [this] {
    const Terminal terminal(200);
    const Process watch({ZUSKUX_MANAGER, "watch", "--control", control()}, Process::kToFile,
                        terminal.program());
    return NextPicture(terminal);
  }();
  const Terminal terminal(60);
  const Process watch({ZUSKUX_MANAGER, "watch", "--control", control()}, Process::kToFile,
                      terminal.program());
  const std::string narrow = NextPicture(terminal);
  EXPECT_THAT(wide, HasSubstr("hal embedded, restarts 0, requests 4, results 4, refused 3, late "
                              "results dropped 0, unfinished 0\x1b[K\n"));
  EXPECT_THAT(narrow,
              HasSubstr("hal embedded, restarts 0, requests 4, results 4, refused 3,\x1b[K\n"
                        "    late results dropped 0, unfinished 0\x1b[K\n"));
  EXPECT_THAT(narrow, testing::ContainsRegex(std::string("\nconnection up since ") + kTime +
                                             ", server embedded,\x1b\\[K\n"
                                             "    generation 0x[0-9a-f]{16},\x1b\\[K\n"
                                             "    last in sync " +
                                             kTime + "\x1b"));
  // The words are the same.
  const auto words_of = [](const std::string& picture) {
    std::istringstream text(picture.substr(picture.find("\nhal ")));
    Words words;
    for (std::string word; text >> word;) words.push_back(word.substr(0, word.find('\x1b')));
    return words;
  };
  EXPECT_EQ(words_of(narrow), words_of(wide));
}

TEST_F(CommandsTest, WatchEndsWithTheManager) {
  Start(Site(1));
  Process watch({ZUSKUX_MANAGER, "watch", "--control", control()});
  ASSERT_TRUE(watch.WaitForOutput("\n"));
  EXPECT_THAT(watch.out(),
              testing::MatchesRegex(std::string(kTime) + " settled: 2 objects: 2 installed\n"));
  manager_->Signal(SIGTERM);
  EXPECT_EQ(manager_->Wait(), 0);
  EXPECT_EQ(watch.Wait(), 4);
  EXPECT_THAT(watch.err(), HasSubstr("zuskux-manager: the manager on " + control() + ": "));
}

TEST_F(CommandsTest, ExplainsAWrongCommand) {
  struct Case {
    Words words;
    const char* error;
  };
  const std::vector<Case> cases = {
      {{"status", "--explain", "host:120"},
       "status does not take --explain; see zuskux-manager help status"},
      {{"status", "host:120"}, "status does not take host:120; see zuskux-manager help status"},
      {{"explain"}, "explain needs an object; write zuskux-manager explain KIND:ID"},
      {{"explain", "vlan:1", "vlan:2"},
       "explain does not take vlan:2; see zuskux-manager help explain"},
      {{"explain", "vlan"},
       "explain vlan names no object; write KIND:ID, for example vlan:10 (vrf, vlan, host, ecmp, "
       "mpls)"},
      {{"objects", "--kind", "x"},
       "--kind x is not a kind of object; use one of vrf, vlan, host, ecmp, mpls"},
      {{"objects", "--kind"},
       "objects: the required argument for option '--kind' is missing; see zuskux-manager help "
       "objects"},
      {{"reload", "--max-removals", "few"},
       "--max-removals few is not a number; write a number of objects, or all"},
      {{"statsu"}, "statsu is neither a command nor a site file; did you mean status?"},
      {{"relaod", "--json"}, "relaod is neither a command nor a site file; did you mean reload?"},
      {{"help", "me"}, "there is no help on me; see zuskux-manager --help"},
      {{"help", "statsu"}, "there is no help on statsu; did you mean status?"},
      {{"help", "reload", "now"}, "help does not take now; write zuskux-manager help COMMAND"},
      {{files_.Write("site", Site(1)), "status"},
       "status is a command; write zuskux-manager status without the site file"},
  };
  for (const Case& wrong : cases) {
    Words words = wrong.words;
    words.insert(words.begin(), ZUSKUX_MANAGER);
    const Outcome run = Execute(words);
    EXPECT_EQ(run.status, 2) << wrong.error;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, std::string("zuskux-manager: ") + wrong.error + '\n');
  }
}

TEST_F(CommandsTest, EveryFormOfHelpWorks) {
  const Outcome help = Execute({ZUSKUX_MANAGER, "--help"});
  EXPECT_EQ(help.status, 0);
  for (const char* const word : {"-h", "help"}) {
    EXPECT_EQ(Execute({ZUSKUX_MANAGER, word}).out, help.out);
  }
  EXPECT_EQ(Execute({ZUSKUX_MANAGER, "help", "help"}).out, help.out);
  const Outcome objects = Execute({ZUSKUX_MANAGER, "help", "objects"});
  EXPECT_EQ(objects.status, 0);
  EXPECT_THAT(objects.out, HasSubstr("Usage: zuskux-manager objects [options]\n"));
  EXPECT_THAT(objects.out, HasSubstr("--failed "));
  EXPECT_THAT(objects.out, Not(HasSubstr("--max-removals")));
  for (const char* const option : {"-h", "--help"}) {
    EXPECT_EQ(Execute({ZUSKUX_MANAGER, "objects", option}).out, objects.out);
  }
}

TEST_F(CommandsTest, ExitsWith1WithoutAManager) {
  for (const char* const command : {"status", "objects", "events", "watch", "reload", "resync"}) {
    const Outcome run = Ask({command});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("cannot connect: No such file or directory"));
  }
}

}  // namespace
}  // namespace reference
