// zuskux-manager with zuskux-hal, as an operator uses them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/manager/process.h"
#include "tests/support/log_text.h"

namespace reference {
namespace {

using testing::ContainerEq;
using testing::HasSubstr;
using testing::MatchesRegex;
using Words = std::vector<std::string>;

Words operator+(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

std::string Example(const std::string& name) { return std::string(ZUSKUX_SITES) + '/' + name; }

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The first two VLANs differ in the second site, which adds the VRF and the host.
constexpr char kSite[] =
    "interface { name: \"eth0\" lim_id: 1 }\n"
    "vlan { id: 10 name: \"a\" interface: \"eth0\" mtu: 1500 }\n"
    "vlan { id: 11 name: \"b\" interface: \"eth0\" mtu: 1500 }\n"
    "vlan { id: 12 name: \"c\" interface: \"eth0\" mtu: 1500 }\n";
constexpr char kOtherSite[] =
    "interface { name: \"eth0\" lim_id: 1 }\n"
    "vrf { id: 1 name: \"red\" vrf_id: 7 }\n"
    "vrf { id: 2 name: \"red again\" vrf_id: 7 }\n"
    "vlan { id: 11 name: \"b\" interface: \"eth0\" mtu: 9000 }\n"
    "vlan { id: 12 name: \"c\" interface: \"eth0\" mtu: 1500 }\n";

/// A server, and the command line that starts a manager. A test's files are in `files`.
class ManagerAndServerTest : public testing::Test {
 protected:
  ManagerAndServerTest() { StartServer({}); }

  void StartServer(const Words& options) {
    server_.reset();
    server_ = std::make_unique<Process>(Words{ZUSKUX_HAL, "--socket", socket()} + options);
    ASSERT_TRUE(server_->WaitForError("listening on"));
  }

  Words Manager(const Words& words) const {
    return Words{ZUSKUX_MANAGER} + words + Words{"--hal", "unix:" + socket()};
  }
  Words Status(const Words& words = {}) const {
    return Words{ZUSKUX_MANAGER, "status", "--control", control()} + words;
  }
  nlohmann::json StatusJson() const {
    return nlohmann::json::parse(Execute(Status({"--json"})).out);
  }
  nlohmann::json Tables() const {
    return nlohmann::json::parse(
        Execute({ZUSKUX_HAL, "tables", "--socket", socket(), "--json"}).out)["tables"];
  }

  std::string socket() const { return files_.File("hal.sock"); }
  std::string control() const { return files_.File("manager.sock"); }

  ScratchDirectory files_;
  std::unique_ptr<Process> server_;
};

TEST_F(ManagerAndServerTest, TheServerEndsUpWithWhatTheEmbeddedHalHolds) {
  for (const char* const site : {"two_uplinks.txtpb", "provider_edge.txtpb"}) {
    const Outcome run = Execute(Manager({Example(site), "--dump-hal", "-"}));
    const Outcome embedded = Execute({ZUSKUX_MANAGER, Example(site), "--dump-hal", "-"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, embedded.out);
    EXPECT_THAT(run.err, HasSubstr("zuskux-manager: in sync after "));
  }
}

TEST_F(ManagerAndServerTest, VrfsReachTheServerBeforeTheProgramEnds) {
  EXPECT_EQ(Execute(Manager({files_.Write("site", kOtherSite)})).status, 0);
  EXPECT_EQ(Tables()["vrf"]["count"], 1);
  EXPECT_EQ(Tables()["vlan"]["count"], 2);
}

TEST_F(ManagerAndServerTest, PlanShowsWhatWouldChangeAndSendsNothing) {
  ASSERT_EQ(Execute(Manager({files_.Write("site", kSite)})).status, 0);
  const auto before = Tables();
  const std::string other = files_.Write("other", kOtherSite);
  const Outcome plan = Execute(Manager({other, "--plan"}));
  EXPECT_EQ(plan.status, 3);
  EXPECT_EQ(plan.err, "");
  EXPECT_EQ(plan.out,
            "install  vrf 7  red\n"
            "         vrf_id: 7\n"
            "replace  vlan 11  b\n"
            "         mtu: 1500 -> 9000\n"
            "remove  vlan 10\n"
            "         interface: eth0 vlan_destination_id: 10 mtu: 1500\n"
            "1 to install, 1 to replace, 1 to remove, 1 unchanged\n");
  EXPECT_EQ(Tables(), before);

  const auto json = nlohmann::json::parse(Execute(Manager({other, "--plan", "--json"})).out);
  EXPECT_EQ(json["summary"],
            nlohmann::json({{"install", 1}, {"replace", 1}, {"remove", 1}, {"unchanged", 1}}));
  EXPECT_EQ(json["steps"], nlohmann::json::parse(R"([
    {"change": "install", "kind": "vrf", "id": 7, "name": "red", "wanted": {"vrf_id": 7}},
    {"change": "replace", "kind": "vlan", "id": 11, "name": "b",
     "changes": {"mtu": {"from": 1500, "to": 9000}}},
    {"change": "remove", "kind": "vlan", "id": 10,
     "present": {"interface": "eth0", "vlan_destination_id": 10, "mtu": 1500}}])"));

  ASSERT_EQ(Execute(Manager({other})).status, 0);
  const Outcome none = Execute(Manager({other, "--plan"}));
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.out, "0 to install, 0 to replace, 0 to remove, 3 unchanged\n");
}

TEST_F(ManagerAndServerTest, APlanNeedsAServer) {
  server_.reset();
  const Outcome plan = Execute(Manager({files_.Write("site", kSite), "--plan"}));
  EXPECT_EQ(plan.status, 1);
  EXPECT_EQ(plan.out, "");
  EXPECT_EQ(plan.err, "zuskux-manager: the HAL server on " + socket() +
                          ": cannot connect: Connection refused; check that zuskux-hal runs and "
                          "that this is its socket\n");
}

TEST_F(ManagerAndServerTest, GivesUpWithoutAServer) {
  server_.reset();
  const Outcome run = Execute(Manager({files_.Write("site", kSite)}));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err,
              testing::EndsWith("zuskux-manager: no HAL server was found at unix:" + socket() +
                                "; start one with zuskux-hal --socket " + socket() + '\n'));
}

/// A manager that stays and has brought the server to a site of two VLANs, and other managers.
class TwoManagersTest : public ManagerAndServerTest {
 protected:
  TwoManagersTest() {
    first_ = std::make_unique<Process>(Staying(other_, control()));
    EXPECT_TRUE(first_->WaitForError("in sync after"));
    EXPECT_TRUE(first_->WaitForError("settled: "));
  }

  Words Staying(const std::string& site, const std::string& control) const {
    return Manager({site, "--stay", "--control", control});
  }
  std::string Program(const Process& process) const {
    return "\"zuskux-manager " ZUSKUX_VERSION "\" (pid " + std::to_string(process.id()) + ')';
  }

  const std::string other_ = files_.Write("other", kOtherSite);
  const std::string site_ = files_.Write("site", kSite);
  std::unique_ptr<Process> first_;
};

TEST_F(TwoManagersTest, TheSecondOneEndsAndNamesTheFirst) {
  const auto before = Tables();
  for (const Words& more : {Words{}, Words{"--stay", "--control", files_.File("second.sock")}}) {
    const Outcome second = Execute(Manager(Words{site_} + more));
    EXPECT_EQ(second.status, 4);
    EXPECT_EQ(second.out, "");
    EXPECT_EQ(second.err, "zuskux-manager: HAL server says goodbye: " + Program(*first_) +
                              " programs this server, which has one writer at a time\n"
                              "zuskux-manager: another client programs the HAL unix:" +
                              socket() + "; stop that one, or start with --take-over\n");
  }
  EXPECT_EQ(Tables(), before);
  EXPECT_EQ(Execute(Manager({other_, "--plan"})).out,
            "0 to install, 0 to replace, 0 to remove, 3 unchanged\n");
  EXPECT_TRUE(StatusJson()["settled"]);
}

TEST_F(TwoManagersTest, TheFirstOneEndsWhenTheSecondOneTakesOver) {
  const Outcome second = Execute(Manager({site_, "--take-over"}));
  EXPECT_EQ(second.status, 0);
  EXPECT_THAT(second.err, HasSubstr("in sync after"));
  EXPECT_EQ(first_->Wait(), 4);
  EXPECT_THAT(first_->err(), HasSubstr(" has taken over\n"));
  EXPECT_THAT(first_->err(),
              testing::EndsWith("zuskux-manager: another client programs the HAL unix:" + socket() +
                                "; stop that one, or start with --take-over\n"));
  EXPECT_EQ(Tables()["vlan"]["count"], 3);
  EXPECT_EQ(Tables()["vrf"]["count"], 0);
}

TEST_F(TwoManagersTest, TheSecondOneStandsByAndFollowsTheFirst) {
  Process second(Staying(site_, files_.File("second.sock")) + Words{"--stand-by"});
  ASSERT_TRUE(second.WaitForError("programs this server"));
  EXPECT_EQ(Tables()["vlan"]["count"], 2);
  first_->Signal(SIGTERM);
  EXPECT_EQ(first_->Wait(), 0);
  ASSERT_TRUE(second.WaitForError("in sync after"));
  EXPECT_EQ(Tables()["vlan"]["count"], 3);
}

TEST_F(TwoManagersTest, ARefusedSiteTakesNothingOver) {
  const auto before = Tables();
  const Outcome second = Execute(Manager({site_, "--take-over", "--max-removals", "0"}));
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr(site_ + " is refused: it would remove 1 of 3 entries of "));
  EXPECT_EQ(Tables(), before);
  EXPECT_TRUE(StatusJson()["settled"]);
  EXPECT_THAT(first_->err(), testing::Not(HasSubstr("HAL server lost")));
}

TEST_F(TwoManagersTest, ARefusedSiteEndsTheOneThatStandsBy) {
  Process second(Staying(site_, files_.File("second.sock")) +
                 Words{"--stand-by", "--max-removals", "0"});
  ASSERT_TRUE(second.WaitForError("programs this server"));
  const auto before = Tables();
  first_->Signal(SIGTERM);
  EXPECT_EQ(first_->Wait(), 0);
  EXPECT_EQ(second.Wait(), 1);
  EXPECT_THAT(second.err(), HasSubstr(site_ + " is refused: it would remove 1 of 3 entries of "));
  EXPECT_EQ(Tables(), before);
}

TEST_F(TwoManagersTest, AReplayIsRefused) {
  const std::string recording = files_.File("recording");
  ASSERT_EQ(Execute({ZUSKUX_MANAGER, site_, "--record", recording}).status, 0);
  const auto before = Tables();
  const Outcome replay = Execute({ZUSKUX_RECORD, "replay", recording, "--hal", "unix:" + socket()});
  EXPECT_EQ(replay.status, 1);
  EXPECT_THAT(replay.err, HasSubstr("zuskux-record: another client programs the HAL server; stop "
                                    "that one first\n"));
  EXPECT_EQ(Tables(), before);
}

TEST_F(ManagerAndServerTest, EndsWhenTheServerVanishesHalfWay) {
  StartServer({"--fault", files_.Write("faults", "fault { what: \"crash-after\" nth: 2 }")});
  const Outcome run = Execute(Manager({files_.Write("site", kSite)}));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err,
              testing::EndsWith("zuskux-manager: the HAL server at unix:" + socket() +
                                " was lost half-way and did not come back within 5 s; start it "
                                "again with zuskux-hal --socket " +
                                socket() + ", then run this again\n"));
}

TEST_F(ManagerAndServerTest, WaitsForAServerThatComesBackInTime) {
  StartServer({"--fault", files_.Write("faults", "fault { what: \"crash-after\" nth: 2 }")});
  Process manager(Manager({files_.Write("site", kSite)}));
  ASSERT_TRUE(manager.WaitForError("HAL server lost"));
  // Longer than the interval at which the manager looks for the server.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  StartServer({});
  EXPECT_EQ(manager.Wait(), 0);
  EXPECT_EQ(Tables()["vlan"]["count"], 3);
}

TEST_F(ManagerAndServerTest, EndsAndReportsThatItIsNotInSync) {
  // The server reports success for the VRF but does not have it.
  StartServer({"--fault",
               files_.Write("faults", R"(fault { what: "answer" of: "vrf" code: 0 times: 100 })")});
  const std::string site = files_.Write("site", kOtherSite);
  const Outcome once = Execute(Manager({site}));
  EXPECT_EQ(once.status, 3) << once.err;
  EXPECT_THAT(once.err, HasSubstr("giving up"));
  EXPECT_THAT(once.err, HasSubstr("NOT settled: not in sync with the HAL; "));
}

// The object breaks after its result, which said that all is well.
TEST_F(ManagerAndServerTest, AOneShotRunReportsAnObjectThatIsBroken) {
  StartServer({"--fault", files_.Write("faults", R"(fault { what: "object-state" of: "vlan" code: 9
                                                             ms: 600000 })")});
  const std::string site = files_.Write("site", kOtherSite);
  const Outcome run = Execute(Manager({site}));
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_THAT(run.out, HasSubstr("  failed     refused by the kernel: a fault\n"));
  // The next manager learns of it, too.
  const Outcome next = Execute(Manager({site}));
  EXPECT_EQ(next.status, 3) << next.err;
  EXPECT_THAT(next.out, HasSubstr("  failed     refused by the kernel: a fault\n"));
}

// A server that carries out a request but never answers it, and answers heartbeats.
class SilentServerTest : public ManagerAndServerTest {
 protected:
  // Runs a manager against a server that swallows the results of all requests of the kind.
  Outcome RunAgainst(const std::string& kind) {
    StartServer({"--fault", files_.Write("faults", "fault { what: \"swallow\" of: \"" + kind +
                                                       "\" times: 1000 }")});
    const std::string site =
        files_.Write("site",
                     "vrf { id: 1 name: \"red\" vrf_id: 7 }\n"
                     "interface { name: \"eth0\" lim_id: 1 }\n"
                     "vlan { id: 10 name: \"a\" interface: \"eth0\" mtu: 1500 }\n");
    return Execute(Manager({site, "--deadline", "1"}));
  }
};

// Its request is still in flight.
TEST_F(SilentServerTest, AOneShotRunThatIsTakenOverEndsAtOnceAndSaysSo) {
  StartServer({"--fault", files_.Write("faults", "fault { what: \"swallow\" of: \"vlan\" }")});
  Process first(Manager({files_.Write("site", kSite)}));
  ASSERT_TRUE(server_->WaitForError("fault: swallow"));
  const Outcome second = Execute(Manager({files_.Write("other", kOtherSite), "--take-over"}));
  EXPECT_EQ(second.status, 0) << second.err;
  EXPECT_EQ(first.Wait(), 4);
  EXPECT_EQ(first.out(), "");
  EXPECT_THAT(WithoutTimes(first.err()),
              testing::EndsWith("zuskux-manager: another client programs the HAL unix:" + socket() +
                                "; stop that one, or start with --take-over\n"));
  EXPECT_EQ(Tables()["vlan"]["count"], 2);
}

TEST_F(SilentServerTest, AVrfFailsWithTheReason) {
  const Outcome run = RunAgainst("vrf");
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_THAT(run.out, MatchesRegex("(.|\n)*vrf +1 +red +failed +no answer in time\n(.|\n)*"));
  EXPECT_THAT(run.out, MatchesRegex("(.|\n)*vlan +10 +a +installed(.|\n)*"));
  EXPECT_THAT(run.err, HasSubstr("install-vrf 7 failed: no answer in time\n"));
}

TEST_F(SilentServerTest, ADestinationFailsWithTheReason) {
  const Outcome run = RunAgainst("vlan");
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_THAT(run.out, MatchesRegex("(.|\n)*vlan +10 +a +failed +no answer in time\n(.|\n)*"));
}

TEST_F(ManagerAndServerTest, LinesHaveATimeAndALevel) {
  const std::string time = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} ";
  Process manager(Manager({files_.Write("site", kSite), "--stay", "--control", control()}));
  EXPECT_TRUE(manager.WaitForError("settled: "));
  server_->Signal(SIGTERM);
  EXPECT_EQ(server_->Wait(), 0);
  EXPECT_TRUE(manager.WaitForError("no HAL server at "));
  EXPECT_THAT(
      Lines(manager.err()),
      testing::ElementsAre(MatchesRegex(time + "INFO zuskux-manager: connected to HAL server .*"),
                           MatchesRegex(time + "INFO zuskux-manager: in sync after .*"),
                           MatchesRegex(time + "INFO zuskux-manager: settled: .*"),
                           MatchesRegex(time + "WARNING zuskux-manager: HAL server lost.*"),
                           MatchesRegex(time + "WARNING zuskux-manager: no HAL server at .*")));
  EXPECT_THAT(Lines(server_->err()),
              testing::ElementsAre(MatchesRegex(time + "INFO zuskux-hal: listening on .*"),
                                   MatchesRegex(time + "INFO zuskux-hal: client 1: .* connected"),
                                   // Reads the tables, before the site is installed.
                                   MatchesRegex(time + "INFO zuskux-hal: client 2: .* connected"),
                                   MatchesRegex(time + "INFO zuskux-hal: client 2: left")));
}

TEST_F(ManagerAndServerTest, ReportsAMissingServerOnce) {
  server_.reset();
  const Process manager(Manager({files_.Write("site", kSite), "--stay", "--control", control()}));
  EXPECT_TRUE(manager.WaitForError("no HAL server at "));
  std::this_thread::sleep_for(std::chrono::milliseconds(4500));
  EXPECT_EQ(Lines(manager.err()).size(), 1U) << manager.err();
}

TEST_F(ManagerAndServerTest, StatusShowsARunningManager) {
  const std::filesystem::path site = std::filesystem::relative(files_.Write("site", kOtherSite));
  Process manager(Manager({site, "--stay", "--control", control()}));
  ASSERT_TRUE(manager.WaitForError("in sync after"));
  ASSERT_TRUE(manager.WaitForError("settled: "));

  struct stat file {};
  ASSERT_EQ(stat(control().c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0600U);

  const Outcome status = Execute(Status());
  EXPECT_EQ(status.status, 0);
  EXPECT_EQ(status.err, "");
  const auto lines = Lines(status.out);
  ASSERT_EQ(lines.size(), 22U);
  EXPECT_THAT(lines[0],
              MatchesRegex("zuskux-manager " ZUSKUX_VERSION ", up [0-9]+\\.[0-9] s, settled"));
  EXPECT_EQ(lines[1], "site " + std::filesystem::absolute(site).string());
  EXPECT_EQ(lines[2], "hal unix:" + socket() +
                          ", restarts 0, requests 3, results 2, refused 0, late results dropped 0, "
                          "unfinished 0");
  EXPECT_THAT(std::vector<std::string>(lines.begin() + 4, lines.begin() + 13),
              ContainerEq(std::vector<std::string>{
                  "", "KIND  PENDING  INSTALLED  INACTIVE  SENT  FAILED  REMOVED",
                  "vrf         0          0         0     2       0        0",
                  "vlan        0          2         0     0       0        0",
                  "host        0          0         0     0       0        0",
                  "ecmp        0          0         0     0       0        0",
                  "mpls        0          0         0     0       0        0", "",
                  "QUEUE        NOW  PEAK"}));
  EXPECT_EQ(lines[13], "due            0     3");
  EXPECT_THAT(lines[18], MatchesRegex("STAGE +COUNT +P50 us +P90 us +P99 us +MAX us"));
  EXPECT_THAT(lines[19], MatchesRegex("queue +3( +[0-9]+\\.[0-9]){4}"));

  const auto json = StatusJson();
  EXPECT_EQ(json["objects"]["vlan"]["installed"], 2);
  EXPECT_EQ(json["queues"]["due"], nlohmann::json({{"now", 0}, {"peak", 3}}));
  EXPECT_EQ(json["stages"]["hal"]["count"], 3);
  EXPECT_GE(json["stages"]["hal"]["max_ns"], json["stages"]["hal"]["p50_ns"]);

  manager.Signal(SIGTERM);
  EXPECT_EQ(manager.Wait(), 0);
  const Outcome after = Execute(Status());
  EXPECT_EQ(after.status, 1);
  EXPECT_EQ(after.err, "zuskux-manager: the manager on " + control() +
                           ": cannot connect: No such file or directory; check that "
                           "zuskux-manager --stay runs and that this is its control socket\n");
}

TEST_F(ManagerAndServerTest, TheServerMayBeKilledWhileTheManagerStays) {
  Process manager(Manager({Example("two_uplinks.txtpb"), "--stay", "--control", control()}));
  ASSERT_TRUE(manager.WaitForError("in sync after"));
  const auto tables = Tables();
  server_->Signal(SIGKILL);
  server_->Wait();
  ASSERT_TRUE(manager.WaitForError("HAL server lost"));
  StartServer({});
  ASSERT_TRUE(manager.WaitForError("in sync after", 2));
  EXPECT_EQ(Tables(), tables);
  EXPECT_EQ(StatusJson()["hal"]["restarts"], 1);
  manager.Signal(SIGUSR1);
  EXPECT_TRUE(manager.WaitForError("the HAL is a program of its own; restart zuskux-hal instead"));
}

TEST_F(ManagerAndServerTest, AManagerThatStartsAgainLeavesNothingStale) {
  ASSERT_EQ(Execute(Manager({files_.Write("site", kSite)})).status, 0);
  const Outcome run = Execute(Manager({files_.Write("other", kOtherSite)}));
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("vrf 1, vlan 2, host 0, ecmp 0, mpls 0 (1 removed)"));
  EXPECT_EQ(Tables()["vlan"]["count"], 2);
}

// Its entries precede its objects, so a truncated site may have only those.
TEST_F(ManagerAndServerTest, ATruncatedSiteDoesNotEmptyTheHalAtTheStart) {
  const std::string interface = "interface { name: \"eth0\" lim_id: 1 }\n";
  std::string site = interface + "vrf { id: 1 name: \"red\" vrf_id: 7 }\n";
  for (int id = 10; id < 24; ++id) {
    const std::string number = std::to_string(id);
    site += "vlan { id: " + number + " name: \"v" + number + "\" interface: \"eth0\" }\n";
  }
  ASSERT_EQ(Execute(Manager({files_.Write("site", site)})).status, 0);
  const auto before = Tables();
  const std::string cut = files_.Write("site", interface);
  for (const Words& more :
       {Words{}, Words{"--stay", "--control", control()}, Words{"--max-removals", "14"}}) {
    const Outcome refused = Execute(Manager(Words{cut} + more));
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err,
                testing::EndsWith(
                    "zuskux-manager: " + cut +
                    " is refused: it would remove 15 of 15 entries of the HAL unix:" + socket() +
                    ": vrf 7, vlan 10, vlan 11, vlan 12, vlan 13 and 10 more; the "
                    "HAL stays as it is; correct the file, or start with "
                    "--max-removals 15\n"));
    EXPECT_EQ(Tables(), before);
  }
  const Outcome allowed = Execute(Manager({cut, "--max-removals", "15"}));
  EXPECT_EQ(allowed.status, 0) << allowed.err;
  EXPECT_EQ(Tables()["vlan"]["count"], 0);
}

TEST_F(ManagerAndServerTest, AStartMayRemoveTenEntries) {
  std::string site = kSite;
  for (int id = 20; id < 30; ++id) {
    site += "vrf { id: " + std::to_string(id) + " name: \"" + std::to_string(id) +
            "\" vrf_id: " + std::to_string(id) + " }\n";
  }
  ASSERT_EQ(Execute(Manager({files_.Write("site", site)})).status, 0);
  EXPECT_EQ(Execute(Manager({files_.Write("site", kSite)})).status, 0);
  EXPECT_EQ(Tables()["vrf"]["count"], 0);
  EXPECT_EQ(Tables()["vlan"]["count"], 3);
}

TEST_F(ManagerAndServerTest, AStartSaysThatItCannotReadTheTables) {
  // The first connection is the manager's, the second one reads.
  StartServer({"--fault", files_.Write("faults", "fault { what: \"refuse\" nth: 2 }")});
  const Outcome run = Execute(Manager({files_.Write("site", kSite)}));
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("zuskux-manager: cannot tell what the site would remove from the "
                                 "HAL: the HAL server on " +
                                 socket() + ": "));
}

// Runs the words as a user to whom the server's and the manager's sockets do not belong.
TEST_F(TwoManagersTest, AnotherUserIsToldWhoMayConnect) {
  const std::string folder = files_.File("");
  const std::string recording = files_.File("recording");
  ASSERT_EQ(Execute({ZUSKUX_MANAGER, site_, "--record", recording}).status, 0);
  ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
  ASSERT_EQ(chmod(recording.c_str(), 0644), 0);
  const Words other = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  if (Execute(other + Words{ZUSKUX_MANAGER, "--check", site_}).status != 0) {
    GTEST_SKIP() << "needs root, and programs that others may run";
  }
  struct Case {
    Words words;
    std::string program;
    std::string socket;
  };
  const std::string hal = "unix:" + socket();
  for (const Case& each :
       {Case{{ZUSKUX_MANAGER, site_, "--hal", hal}, "zuskux-manager", socket()},
        Case{{ZUSKUX_MANAGER, site_, "--hal", hal, "--plan"}, "zuskux-manager", socket()},
        Case{{ZUSKUX_MANAGER, "status", "--control", control()}, "zuskux-manager", control()},
        Case{{ZUSKUX_HAL, "tables", "--socket", socket()}, "zuskux-hal", socket()},
        Case{{ZUSKUX_RECORD, "replay", recording, "--hal", hal}, "zuskux-record", socket()}}) {
    const Outcome run = Execute(other + each.words);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err,
              each.program + ": only root may connect to " + each.socket + "; run this as root\n");
  }
}

TEST_F(ManagerAndServerTest, OneManagerOwnsTheControlSocket) {
  Process manager(Manager({files_.Write("site", kSite), "--stay", "--control", control()}));
  ASSERT_TRUE(manager.WaitForError("settled: "));
  const Outcome second =
      Execute(Manager({files_.Write("site", kSite), "--stay", "--control", control()}));
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("the control socket " + control() +
                                    " is in use, probably by another manager; stop that one, or "
                                    "add --control PATH with another path\n"));
  EXPECT_EQ(StatusJson()["settled"], true) << "the first one is still there";
}

TEST_F(ManagerAndServerTest, ARequestThatIsNotAnsweredEndsWithItsDeadline) {
  const std::string faults =
      files_.Write("faults", "fault { what: \"swallow\" of: \"vlan\" nth: 2 }\n");
  StartServer({"--fault", faults});
  const Outcome run = Execute(Manager({files_.Write("site", kSite), "--deadline", "1"}));
  EXPECT_EQ(run.status, 0) << "the request is sent again";
  EXPECT_EQ(Tables()["vlan"]["count"], 3);
}

// The requests' renderings in `show` equal those of the trace.
std::vector<std::string> Renderings(const std::string& text, const std::string& wrapper) {
  std::vector<std::string> renderings;
  for (const std::string& line : Lines(text)) {
    const auto place = line.find(wrapper + "(this=");
    if (place != std::string::npos) renderings.push_back(line.substr(place));
  }
  return renderings;
}

TEST_F(ManagerAndServerTest, ARecordingReplaysWithoutDifference) {
  const std::string recording = files_.File("recording");
  const std::string at_server = files_.File("recording-of-server");
  StartServer({"--record", at_server});
  const Outcome run =
      Execute(Manager({Example("provider_edge.txtpb"), "--trace", "--record", recording}));
  ASSERT_EQ(run.status, 0);
  server_->Signal(SIGTERM);
  EXPECT_EQ(server_->Wait(), 0);

  const Outcome show = Execute({ZUSKUX_RECORD, "show", recording});
  EXPECT_EQ(show.status, 0);
  // For the other kinds, the library traces no rendering of the message.
  for (const char* const wrapper : {"VlanEncapsulationMessage", "MplsEncapsulationMessage"}) {
    const auto traced = Renderings(run.err, wrapper);
    EXPECT_GE(traced.size(), 8U);
    EXPECT_EQ(Renderings(show.out, wrapper), traced);
  }

  StartServer({});
  for (const std::string& hal : {std::string("embedded"), "unix:" + socket()}) {
    for (const std::string& file : {recording, at_server}) {
      const Outcome replay = Execute({ZUSKUX_RECORD, "replay", file, "--hal", hal});
      EXPECT_EQ(replay.status, 0) << replay.err;
      EXPECT_EQ(replay.out,
                "requests sent 76, not compared 2, not sent because the client had refused them "
                "0, differences 0\n");
    }
  }
  EXPECT_EQ(Execute({ZUSKUX_RECORD, "diff", recording, at_server}).out, "differences 0\n");
}

}  // namespace
}  // namespace reference
