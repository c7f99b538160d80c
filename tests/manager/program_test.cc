// zuskux-manager as an operator sees it: its output, its messages and its exit status.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "reference/site/generate_site.h"
#include "reference/site/site_writer.h"
#include "tests/manager/process.h"

namespace reference {
namespace {

using Words = std::vector<std::string>;

std::vector<std::string> Command(const Words& arguments) {
  Words words = {ZUSKUX_MANAGER};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

Outcome RunManager(const Words& arguments) { return Execute(Command(arguments)); }

std::string Example(const std::string& name) { return std::string(ZUSKUX_SITES) + '/' + name; }

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::string LastLine(const std::string& text) {
  const std::size_t end = text.find_last_not_of('\n');
  return text.substr(text.rfind('\n', end) + 1, end - text.rfind('\n', end));
}

constexpr char kTwoVlans[] =
    "interface { name: \"eth0\" lim_id: 1 }\n"
    "vrf { id: 1 name: \"red\" vrf_id: 7 }\n"
    "vlan { id: 10 name: \"a\" interface: \"eth0\" vrf: 7 }\n"
    "vlan { id: 11 name: \"b\" interface: \"eth0\" }\n"
    "host { id: 20 name: \"p\" interface: \"eth0\" vlan: \"b\" }\n";

TEST(ManagerProgramTest, InstallsASiteAndShowsTheTable) {
  const ScratchDirectory files{};
  const Outcome run = RunManager({files.Write("site", kTwoVlans)});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "KIND  ID  NAME  STATE      REASON\n"
            "vrf   1   red   sent\n"
            "vlan  10  a     installed\n"
            "vlan  11  b     installed\n"
            "host  20  p     installed\n"
            "\n"
            "installed  The HAL has confirmed that it holds the object.\n"
            "sent       The HAL has accepted the request; a VRF gets no other confirmation.\n"
            "4 objects: 3 installed, 1 sent\n");
  EXPECT_EQ(run.err, "");
}

TEST(ManagerProgramTest, FailsWhenAnObjectFailed) {
  const ScratchDirectory files{};
  const Outcome run = RunManager({files.Write("site", kTwoVlans), "--table-size", "1"});
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.out,
            "KIND  ID  NAME  STATE      REASON\n"
            "vrf   1   red   sent\n"
            "vlan  10  a     installed\n"
            "vlan  11  b     failed     table full\n"
            "host  20  p     failed     a destination that it refers to does not exist in the "
            "HAL\n"
            "\n"
            "installed  The HAL has confirmed that it holds the object.\n"
            "sent       The HAL has accepted the request; a VRF gets no other confirmation.\n"
            "failed     The HAL refused it, gave no answer, or lost it since; see REASON.\n"
            "4 objects: 1 installed, 1 sent, 2 failed\n");
}

TEST(ManagerProgramTest, ShowsTheTableForPrograms) {
  const ScratchDirectory files{};
  const Outcome run = RunManager({files.Write("site", kTwoVlans), "--json"});
  EXPECT_EQ(run.status, 0);
  const auto json = nlohmann::json::parse(run.out);
  EXPECT_EQ(json["objects"].size(), 4U);
  EXPECT_EQ(json["objects"][3]["name"], "p");
  EXPECT_EQ(json["summary"]["installed"], 3);
}

TEST(ManagerProgramTest, Explains) {
  const ScratchDirectory files{};
  const std::string site = files.Write("site", kTwoVlans);
  const Outcome run = RunManager({site, "--table-size", "1", "--explain", "host:20"});
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.out,
            "host:20 \"p\" failed: a destination that it refers to does not exist in the HAL\n"
            "  it rides on vlan:11 \"b\", which failed: table full\n");
  // The status is about the object asked for.
  const Outcome installed = RunManager({site, "--table-size", "1", "--explain", "vlan:10"});
  EXPECT_EQ(installed.status, 0);
  EXPECT_EQ(installed.out, "vlan:10 \"a\" is installed\n");
  const Outcome unknown = RunManager({site, "--explain", "host:21"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.out, "");
  EXPECT_EQ(
      unknown.err,
      "zuskux-manager: there is no host:21; without --explain, the table lists all objects\n");
}

TEST(ManagerProgramTest, AppliesOneSiteAfterTheOther) {
  const Outcome run =
      RunManager({Example("two_uplinks.txtpb"), "--apply", Example("two_uplinks_v2.txtpb"),
                  "--apply", Example("two_uplinks.txtpb"), "--dump-hal", "-"});
  const Outcome fresh = RunManager({Example("two_uplinks.txtpb"), "--dump-hal", "-"});
  EXPECT_EQ(run.status, 0);
  const auto dump = [](const std::string& out) { return out.substr(0, out.find("KIND")); };
  EXPECT_EQ(dump(run.out), dump(fresh.out));
  EXPECT_TRUE(Contains(dump(run.out), "ecmp:301 db_id: 301 members: "));
}

TEST(ManagerProgramTest, AnIdMayMoveToAnotherKindInFullTables) {
  const ScratchDirectory files{};
  const std::string interface = "interface { name: \"eth0\" lim_id: 1 type: 1 ifindex: 1 }\n";
  const std::string vlan = " interface: \"eth0\" }\n";
  const std::string first = files.Write(
      "first", interface + "vlan { id: 1 name: \"a\"" + vlan + "vlan { id: 2 name: \"b\"" + vlan +
                   "host { id: 10 name: \"p\" interface: \"eth0\" vlan: \"b\" }\n");
  const std::string second = files.Write(
      "second", interface + "vlan { id: 2 name: \"b\"" + vlan + "vlan { id: 10 name: \"c\"" + vlan +
                    "host { id: 20 name: \"q\" interface: \"eth0\" vlan: \"c\" }\n");
  const Outcome run = RunManager({first, "--apply", second, "--table-size", "2"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(Contains(run.out, "5 objects: 3 installed, 2 removed\n")) << run.out;
}

TEST(ManagerProgramTest, AVrfIsTriedAgainAfterARemovalOrFails) {
  const ScratchDirectory files{};
  const std::string red = "vrf { id: 1 name: \"red\" vrf_id: 10 }\n";
  const std::string blue = "vrf { id: 2 name: \"blue\" vrf_id: 20 }\n";
  const Outcome run = RunManager({files.Write("red", red), "--apply", files.Write("blue", blue),
                                  "--table-size", "1", "--dump-hal", "-"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(Contains(run.out, "vrf:20 vrf_id: 20")) << run.out;
  EXPECT_TRUE(Contains(run.out, "2 objects: 1 sent, 1 removed\n")) << run.out;

  const Outcome both = RunManager({files.Write("both", red + blue), "--table-size", "1"});
  EXPECT_EQ(both.status, 3);
  EXPECT_EQ(both.out,
            "KIND  ID  NAME  STATE      REASON\n"
            "vrf   1   red   sent\n"
            "vrf   2   blue  failed     table full\n"
            "\n"
            "sent       The HAL has accepted the request; a VRF gets no other confirmation.\n"
            "failed     The HAL refused it, gave no answer, or lost it since; see REASON.\n"
            "2 objects: 1 sent, 1 failed\n");
}

TEST(ManagerProgramTest, ReportsEveryMistakeAndProgramsNothing) {
  const ScratchDirectory files{};
  const std::string good = files.Write("good", kTwoVlans);
  const std::string bad = files.Write("bad",
                                      "vrf { id: 0 name: \"red\" vrf_id: 7 }\n"
                                      "vrf { id: 2 vrf_id: 8 }\n");
  for (const Words& arguments :
       {Words{bad, "--trace"}, Words{good, "--apply", bad, "--trace"}, Words{"--check", bad}}) {
    const Outcome run = RunManager(arguments);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(Contains(run.err, bad + ":1:7: ")) << run.err;
    EXPECT_TRUE(Contains(run.err, bad + ":2:1: ")) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 3) << run.err;
    EXPECT_EQ(LastLine(run.err), "zuskux-manager: 2 errors in 1 file; nothing was programmed");
  }
}

TEST(ManagerProgramTest, ChecksASite) {
  const ScratchDirectory files{};
  const std::string site = files.Write("site", kTwoVlans);
  const Outcome run = RunManager({"--check", site});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, site + ": 4 objects\n");
  EXPECT_EQ(run.err, "");
  const Outcome missing = RunManager({"--check", files.File("missing")});
  EXPECT_EQ(missing.status, 1);
  EXPECT_TRUE(Contains(missing.err, files.File("missing"))) << missing.err;
}

constexpr char kTwoMistakesAndAWarning[] =
    "interface { name: \"eth0\" lim_id: 1 }\n"
    "vlan { id: 10 name: \"a\" interface: \"eth0\" vrf: 7 }\n"
    "mpls { id: 11 name: \"b\" interface: \"eth0\" label: 1048576 }\n"
    "host { id: 12 name: \"c\" interface: \"eth0\" mac: \"01:00:5e:00:00:01\" }\n";

TEST(ManagerProgramTest, ChecksEveryFile) {
  const ScratchDirectory files{};
  const std::string good = files.Write("good", kTwoVlans);
  const std::string bad = files.Write("bad", kTwoMistakesAndAWarning);
  const std::string torn = files.Write("torn", "vrf { idd: 1 }\nvrf { id: \"x\" }\nvlan {\n");
  const Outcome run = RunManager({"--check", good, bad, torn});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, good + ": 4 objects\n");
  for (const std::string& place :
       {bad + ":2:43: warning: no vrf has vrf_id 7; ",
        bad + ":3:43: label 1048576 is out of range; ", bad + ":4:43: mac ",
        torn + ":1:7: vrf has no field ",
        torn + ":2:11: syntax error: ", torn + ":3:1: the entry has no end; "}) {
    EXPECT_TRUE(Contains(run.err, place)) << place << " is not in\n" << run.err;
  }
  EXPECT_EQ(LastLine(run.err),
            "zuskux-manager: 5 errors and 1 warning in 3 files; nothing was programmed");
}

TEST(ManagerProgramTest, WarningsDoNotFailACheck) {
  const ScratchDirectory files{};
  const std::string site =
      files.Write("site",
                  "interface { name: \"eth0\" lim_id: 1 }\n"
                  "mpls { id: 11 name: \"b\" interface: \"eth0\" neighbor: \"x\" }\n");
  const Outcome run = RunManager({"--check", site});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, site + ": 1 object\n");
  EXPECT_TRUE(Contains(run.err, site + ":2:43: warning: no host has the name \"x\"")) << run.err;
  EXPECT_EQ(LastLine(run.err), "zuskux-manager: 1 warning in 1 file; nothing was programmed");
}

TEST(ManagerProgramTest, ChecksForPrograms) {
  const ScratchDirectory files{};
  const std::string good = files.Write("good", kTwoVlans);
  const std::string bad = files.Write("bad", kTwoMistakesAndAWarning);
  const Outcome run = RunManager({"--check", "--json", good, bad});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "");
  const auto json = nlohmann::json::parse(run.out);
  EXPECT_EQ(json["files"],
            nlohmann::json::array({{{"file", good}, {"objects", 4}}, {{"file", bad}}}));
  EXPECT_EQ(json["summary"], (nlohmann::json{{"errors", 2}, {"warnings", 1}}));
  ASSERT_EQ(json["diagnostics"].size(), 3U);
  EXPECT_EQ(json["diagnostics"][0]["severity"], "warning");
  EXPECT_EQ(json["diagnostics"][1],
            (nlohmann::json{{"file", bad},
                            {"line", 3},
                            {"column", 43},
                            {"severity", "error"},
                            {"message", "label 1048576 is out of range; use 0 to 1048575"}}));
}

TEST(ManagerProgramTest, ExplainsAWrongCommandLine) {
  struct Case {
    Words arguments;
    const char* error;
  };
  const std::vector<Case> cases = {
      {{}, "the site file is missing; write zuskux-manager SITE"},
      {{"a", "b"}, "b is one file too many; write --apply b to apply it next"},
      {{"a", "--explain", "x"},
       "--explain x names no object; write KIND:ID, for example vlan:10 (vrf, vlan, host, ecmp, "
       "mpls)"},
      {{"a", "--graph", "x.png"},
       "--graph x.png has an unknown format; use a name in .svg, .dot or .gv"},
      {{"a", "--table-size", "0"}, "--table-size 0 is out of range; use 1 to 1073741824"},
      {{"a", "--restart-hal-after", "-1"},
       "--restart-hal-after -1 is out of range; use 1 to 9223372036854775807"},
      {{"a", "--max-removals", "1x"},
       "--max-removals 1x is not a number; write a number of objects, or all"},
      {{"a", "--hal", "x"}, "--hal x is not known; use embedded, unix or unix:PATH"},
      {{"a", "--hal", "unix:"}, "--hal unix: is not known; use embedded, unix or unix:PATH"},
      {{"a", "--hal", "unix:s", "--table-size", "5"},
       "--table-size needs --hal embedded; use zuskux-hal --table-size"},
      {{"a", "--hal", "unix:s", "--restart-hal-after", "5"},
       "--restart-hal-after needs --hal embedded; see zuskux-hal --fault"},
      {{"a", "--take-over"}, "--take-over needs --hal unix"},
      {{"a", "--stay", "--stand-by"}, "--stand-by needs --hal unix"},
      {{"a", "--control", "s"}, "--control needs --stay; add --stay"},
      {{"check", "a"}, "check is neither a command nor a site file; did you mean --check?"},
      {{"a", "--hal", "unix:s", "--stand-by"}, "--stand-by needs --stay; add --stay"},
      {{"a", "--audit", "5"}, "--audit needs --stay and --hal unix"},
      {{"a", "--stay", "--audit", "5"}, "--audit needs --stay and --hal unix"},
      {{"a", "--hal", "unix:s", "--audit", "5"}, "--audit needs --stay and --hal unix"},
      {{"a", "--stay", "--hal", "unix:s", "--audit", "-1"},
       "--audit -1 is out of range; use 0 to 86400"},
      {{"a", "--plan", "--audit", "5"}, "--audit has no effect with --plan; leave it out"},
      {{"--check"}, "the site file is missing; write zuskux-manager --check FILE..."},
      {{"--check", "a", "--stay"}, "--stay has no effect with --check; leave it out"},
      {{"a", "--plan", "--take-over"}, "--take-over has no effect with --plan; leave it out"},
      {{"a", "--deadline", "0"}, "--deadline 0 is out of range; use 1 to 86400"},
      {{"a", "--plan", "--apply", "b"}, "--apply has no effect with --plan; leave it out"},
      {{"a", "--plan", "--record", "b"}, "--record has no effect with --plan; leave it out"},
      {{"a", "--wrong"}, "unrecognised option '--wrong'; see zuskux-manager --help"},
  };
  for (const Case& wrong : cases) {
    const Outcome run = RunManager(wrong.arguments);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, std::string("zuskux-manager: ") + wrong.error + '\n');
  }
}

TEST(ManagerProgramTest, ShowsItsVersion) {
  EXPECT_EQ(RunManager({"--version"}).out, "zuskux-manager " ZUSKUX_VERSION "\n");
}

TEST(ManagerProgramTest, ShowsTraceLinesOnRequest) {
  const ScratchDirectory files{};
  const Outcome run = RunManager({files.Write("site", kTwoVlans), "--trace"});
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(Contains(run.err,
                       " TRACE     src/vrf/vrf_hai:23 InstallVrf: [TX ===>] hai:vrf:"
                       "Install VRF=7 db_id=1 l3-ingress interface at HW\n"))
      << run.err;
  EXPECT_TRUE(Contains(run.err, "lim id(name=eth0, ")) << run.err;
}

TEST(ManagerProgramTest, LogsAsConfigured) {
  const ScratchDirectory files{};
  const std::string log = files.File("log");
  const std::string config = files.Write(
      "config",
      "[levels]\nTRACE = 10\n[formats]\nl = \"%U%n\"\n[rules]\nzuskux.TRACE \"" + log + "\"; l\n");
  const Outcome run = RunManager({files.Write("site", kTwoVlans), "--log-config", config});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  EXPECT_TRUE(Contains(ReadText(log), "InstallVrf\n"));

  const Outcome missing = RunManager({files.File("site"), "--log-config", files.File("missing")});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(LastLine(missing.err), "zuskux-manager: cannot start logging with " +
                                       files.File("missing") + "; correct the log configuration");
}

TEST(ManagerProgramTest, WritesAGraph) {
  const ScratchDirectory files{};
  const std::string graph = files.File("graph.dot");
  const Outcome run = RunManager({files.Write("site", kTwoVlans), "--graph", graph});
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(Contains(ReadText(graph), "\"host:20\" -> \"vlan:11\";"));
}

TEST(ManagerProgramTest, OpensItsOutputFilesBeforeItProgramsTheHal) {
  const ScratchDirectory files{};
  const std::string site = files.Write("site", kTwoVlans);
  for (const char* const option : {"--graph", "--dump-hal", "--record"}) {
    const std::string path = files.File("missing/file.dot");
    const Outcome run = RunManager({site, "--trace", option, path});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    // No trace line: nothing was sent.
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_TRUE(Contains(run.err, path +
                                      ": No such file or directory; create the folder first with "
                                      "mkdir -p " +
                                      files.File("missing") + ", or correct the path\n"))
        << run.err;
  }
}

// A fake `dot`, which fails on every graph, in the folder; empty for none.
Outcome RunWithDot(const ScratchDirectory& files, const std::string& dot) {
  const std::string site = files.Write("site", kTwoVlans);
  const std::string folder = files.File("bin");
  std::filesystem::create_directory(folder);
  if (!dot.empty()) {
    std::filesystem::permissions(files.Write("bin/dot", dot), std::filesystem::perms::owner_all);
  }
  return Execute({"/bin/bash", "-c",
                  "PATH=" + folder + " exec " ZUSKUX_MANAGER " " + site + " --trace --graph " +
                      files.File("site.svg")});
}

TEST(ManagerProgramTest, LooksForDotBeforeItProgramsTheHal) {
  const ScratchDirectory files{};
  const Outcome run = RunWithDot(files, "");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "zuskux-manager: cannot draw the graph: dot is missing; install the package graphviz "
            "or write a .dot file\n");
}

TEST(ManagerProgramTest, AFailedDrawingStillShowsTheTableAndLeavesNoFile) {
  const ScratchDirectory files{};
  const Outcome run = RunWithDot(files, "#!/bin/sh\nexit 1\n");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(LastLine(run.out), "4 objects: 3 installed, 1 sent");
  EXPECT_EQ(LastLine(run.err),
            "zuskux-manager: cannot draw the graph: dot failed; write a .dot file to see its "
            "input");
  const std::filesystem::directory_iterator left(files.File(""));
  EXPECT_EQ(std::distance(begin(left), end(left)), 2) << "besides the site and bin/";
}

TEST(ManagerProgramTest, ARestartOfTheHalChangesNothing) {
  const ScratchDirectory files{};
  const std::string site = files.Write("site", WriteSite(GenerateSite(1, 500)));
  const std::string dump = files.File("dump");
  const Outcome fresh = RunManager({site, "--dump-hal", dump});
  const std::string expected = ReadText(dump);
  for (const char* const after : {"1", "250", "495"}) {
    const Outcome run = RunManager({site, "--dump-hal", dump, "--restart-hal-after", after});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, fresh.out);
    EXPECT_EQ(ReadText(dump), expected);
    EXPECT_TRUE(Contains(run.err, "zuskux-manager: restarting the HAL\n"));
    EXPECT_TRUE(Contains(run.err, "zuskux-manager: reinstall finished: 500 objects in "));
  }
}

TEST(ManagerProgramTest, LogsPrioritiesToTheJournal) {
  const ScratchDirectory files{};
  const std::string log = files.Write("log", "");
  const int file = open(log.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  struct stat status {};
  ASSERT_EQ(fstat(file, &status), 0);
  const std::string journal = std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
  setenv("JOURNAL_STREAM", journal.c_str(), 1);
  Process process(Command({files.Write("site", kTwoVlans), "--trace", "--explain", "host:1"}),
                  file);
  unsetenv("JOURNAL_STREAM");
  EXPECT_EQ(process.Wait(), 2);
  close(file);
  int traced = 0;
  std::istringstream lines(ReadText(log));
  std::string line;
  while (std::getline(lines, line)) {
    if (line == "<3>there is no host:1; without --explain, the table lists all objects") continue;
    EXPECT_TRUE(std::regex_match(line, std::regex("<7>[0-9].* TRACE .*"))) << line;
    ++traced;
  }
  EXPECT_GT(traced, 3);
}

// Limits files to 64 KiB, as on a disk that fills up.
TEST(ManagerProgramTest, ARecordingThatEndsEarlyHasAnExitStatus) {
  const ScratchDirectory files{};
  const std::string recording = files.File("recording");
  const std::string site = files.Write("site", WriteSite(GenerateSite(1, 2000)));
  const std::string vlan = "vlan:" + std::to_string(GenerateSite(1, 2000).vlans[0].id);
  const Outcome full = Execute({"/bin/bash", "-c",
                                "ulimit -f 64; exec " ZUSKUX_MANAGER " " + site + " --record " +
                                    recording + " --explain " + vlan});
  EXPECT_EQ(full.status, 5) << full.err;
  EXPECT_EQ(full.err, "zuskux-manager: recording to " + recording +
                          " stopped: File too large; what was written before is kept; free space "
                          "and restart to record again\n");
  EXPECT_TRUE(Contains(full.out, "is installed")) << full.out;
}

TEST(ManagerProgramTest, NamesTheFileThatItRecordsToInstead) {
  const ScratchDirectory files{};
  const std::string recording = files.Write("recording", "kept");
  const Outcome run = RunManager({files.Write("site", kTwoVlans), "--record", recording});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err,
            "zuskux-manager: " + recording + " exists; recording to " + recording + ".1\n");
  EXPECT_EQ(ReadText(recording), "kept");
}

TEST(ManagerProgramTest, RunsUntilItIsTerminated) {
  const ScratchDirectory files{};
  const std::string site = files.Write("site", kTwoVlans);
  Process process(Command({site, "--stay", "--control", files.File("manager.sock")}));
  ASSERT_TRUE(process.WaitForError("settled: 4 objects: 3 installed, 1 sent\n"));

  files.Write("site", "vrf { id: 1 name: \"red\" vrf_id: 7 }\n");
  process.Signal(SIGHUP);
  ASSERT_TRUE(process.WaitForError("settled: 4 objects: 1 sent, 3 removed\n"));

  files.Write("site", "vrf { id: 0 name: \"red\" vrf_id: 7 }\n");
  process.Signal(SIGHUP);
  ASSERT_TRUE(process.WaitForError("keeping the current site; correct " + site));

  process.Signal(SIGUSR1);
  ASSERT_TRUE(process.WaitForError("reinstall finished: 1 objects in "));
  ASSERT_TRUE(process.WaitForError("settled: ", 3));

  process.Signal(SIGTERM);
  EXPECT_EQ(process.Wait(), 0);
  EXPECT_EQ(LastLine(process.out()), "4 objects: 1 sent, 3 removed");
}

// A site of `count` VLANs, 10 to 9 + `count`.
std::string Vlans(int count) {
  std::string text = "interface { name: \"eth0\" lim_id: 1 }\n";
  for (int id = 10; id < 10 + count; ++id) {
    text += "vlan { id: " + std::to_string(id) + " name: \"v" + std::to_string(id) +
            "\" interface: \"eth0\" }\n";
  }
  return text;
}

TEST(ManagerProgramTest, ATruncatedSiteDoesNotEmptyTheHal) {
  const ScratchDirectory files{};
  const std::string site = files.Write("site", Vlans(15));
  Process process(Command({site, "--stay", "--control", files.File("manager.sock")}));
  ASSERT_TRUE(process.WaitForError("settled: 15 objects: 15 installed\n"));

  files.Write("site", Vlans(0));
  process.Signal(SIGHUP);
  ASSERT_TRUE(process.WaitForError(
      "ERROR zuskux-manager: " + site +
      " is refused: it would remove 15 of 15 objects: vlan:10 \"v10\", vlan:11 \"v11\", vlan:12 "
      "\"v12\", vlan:13 \"v13\", vlan:14 \"v14\" and 10 more; the current site stays; correct "
      "the file, or run zuskux-manager reload --control " +
      files.File("manager.sock") + " --max-removals 15\n"));

  // Ten objects may always be removed, however few there are.
  files.Write("site", Vlans(5));
  process.Signal(SIGHUP);
  ASSERT_TRUE(process.WaitForError("settled: 15 objects: 5 installed, 10 removed\n"));

  process.Signal(SIGTERM);
  EXPECT_EQ(process.Wait(), 0);
}

TEST(ManagerProgramTest, ASiteThatWouldRemoveTooMuchIsNotApplied) {
  const ScratchDirectory files{};
  const std::string site = files.Write("site", Vlans(44));
  struct Case {
    int left;
    Words options;
    int status;
    const char* summary;
  };
  const std::vector<Case> cases = {
      {33, {}, 0, "33 objects: 33 installed"},
      {32, {}, 1, "44 objects: 44 installed"},
      {32, {"--max-removals", "12"}, 0, "32 objects: 32 installed"},
      {32, {"--max-removals", "11"}, 1, "44 objects: 44 installed"},
      {43, {"--max-removals", "0"}, 1, "44 objects: 44 installed"},
      {0, {"--max-removals", "all"}, 0, "0 objects"},
  };
  for (const Case& each : cases) {
    const std::string next = files.Write("next", Vlans(each.left));
    Words words = {site, "--apply", next, "--apply", next};
    words.insert(words.end(), each.options.begin(), each.options.end());
    const Outcome run = RunManager(words);
    EXPECT_EQ(run.status, each.status) << each.left;
    EXPECT_EQ(LastLine(run.out), each.summary);
    EXPECT_EQ(Contains(run.err, next + " is refused: it would remove "), each.status != 0);
  }
}

TEST(ManagerProgramTest, StayingEndsWithTheStatusOfTheObjects) {
  const ScratchDirectory files{};
  Process process(Command({files.Write("site", kTwoVlans), "--stay", "--table-size", "1",
                           "--control", files.File("manager.sock")}));
  ASSERT_TRUE(process.WaitForError("settled: "));
  process.Signal(SIGINT);
  EXPECT_EQ(process.Wait(), 3);
}

}  // namespace
}  // namespace reference
