#include "reference/server/fault_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <variant>
#include <vector>

#include "tests/hal/messages.h"
#include "tests/server/test_server.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;
using Plan = FaultsOrMistakes;

std::vector<std::string> Errors(const Plan& plan) {
  std::vector<std::string> texts;
  const auto* const errors = std::get_if<std::vector<Diagnostic>>(&plan);
  if (errors == nullptr) return texts;
  for (const Diagnostic& error : *errors) texts.push_back(FormatDiagnostic("f", error));
  return texts;
}

struct BadFile {
  const char* name;
  const char* text;
  // How the only diagnostic begins.
  const char* complaint;
};

class BadFileTest : public ::testing::TestWithParam<BadFile> {};

TEST_P(BadFileTest, NamesThePlaceAndTheRemedy) {
  EXPECT_THAT(Errors(ParseFaultFile(GetParam().text, {})),
              ElementsAre(StartsWith(GetParam().complaint)));
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadFileTest,
    ::testing::Values(
        BadFile{"NoWhat", "fault { nth: 2 }",
                "f:1:1: a fault has no what; add what: with one of: refuse, close-on-accept, "},
        BadFile{"UnknownWhat", "seed: 1\nfault { what: \"explode\" }",
                "f:2:9: unknown what \"explode\"; use one of: refuse, close-on-accept, "
                "one-byte-writes, slow-reads, answer, table-full, close-before, close-after, "
                "crash-before, crash-after, cut-in-header, cut-in-body, delay, reorder, duplicate, "
                "swallow, stray, pause, stall, object-state"},
        BadFile{"MissingNumber", "\nfault { what: \"delay\" }",
                "f:2:1: what: \"delay\" has no ms; add ms: N"},
        BadFile{"UselessNumber", "fault { what: \"swallow\" ms: 5 }",
                "f:1:25: ms does not apply to what: \"swallow\"; remove it"},
        BadFile{"UselessOf", "fault { what: \"refuse\" of: \"vlan\" }",
                "f:1:24: of does not apply to what: \"refuse\"; remove it"},
        BadFile{"UselessUnknownOf", "fault { what: \"refuse\" of: \"tree\" }",
                "f:1:24: of does not apply to what: \"refuse\"; remove it"},
        BadFile{"UselessInReinstall", "fault { what: \"refuse\" in_reinstall: true }",
                "f:1:24: in_reinstall does not apply to what: \"refuse\"; remove it"},
        BadFile{"UnknownOf", "fault { what: \"swallow\" of: \"tree\" }",
                "f:1:25: unknown of \"tree\"; use one of: vrf, vlan, host, ecmp, mpls, "
                "install-vrf, "},
        BadFile{"ZeroTimes", "fault { what: \"swallow\" times: 0 }",
                "f:1:25: times 0 is out of range; use 1 to 1000000000"},
        BadFile{"NegativeNth", "fault { what: \"swallow\" nth: -1 }",
                "f:1:25: nth -1 is out of range; use 1 to 1000000000"},
        BadFile{"GreatCode", "fault { what: \"answer\" code: 4294967296 }",
                "f:1:24: code 4294967296 is out of range; use 0 to 4294967295"},
        BadFile{"SmallWindow", "fault { what: \"reorder\" ms: 1 window: 1 }",
                "f:1:31: window 1 is out of range; use 2 to 65536"},
        BadFile{"GreatSeed", "seed: 4294967296",
                "f:1:1: seed 4294967296 is out of range; use 0 to 4294967295"},
        BadFile{"UnknownField", "fault { wat: 1 }",
                "f:1:9: fault has no field \"wat\"; use one of: what, of, in_reinstall, "},
        BadFile{"UnknownOutermostField", "faults { }",
                "f:1:1: a fault file has no field \"faults\"; use one of: seed, fault"},
        BadFile{"Syntax", "fault { what: }", "f:1:15: syntax error: "}),
    [](const auto& tested) { return tested.param.name; });

TEST(ParseFaultFile, ReportsEveryMistakeInOrder) {
  EXPECT_THAT(Errors(ParseFaultFile("fault { what: \"swallow\" ms: 1 nth: 0 }\nfault { }", {})),
              ElementsAre(StartsWith("f:1:25: ms"), StartsWith("f:1:31: nth"),
                          StartsWith("f:2:1: a fault has no what")));
}

TEST(ParseFaultFile, AcceptsEveryWord) {
  for (const std::string text : {"refuse\"",
                                 "close-on-accept\"",
                                 "one-byte-writes\"",
                                 "slow-reads\" bytes_per_second: 1",
                                 "answer\" code: 0",
                                 "table-full\" entries: 0",
                                 "close-before\"",
                                 "close-after\"",
                                 "answer\" code: 1 nth: 1 times: 1 one_in: 1",
                                 "crash-before\"",
                                 "crash-after\"",
                                 "cut-in-header\"",
                                 "cut-in-body\"",
                                 "delay\" ms: 0",
                                 "reorder\" window: 2 ms: 600000",
                                 "duplicate\"",
                                 "swallow\"",
                                 "stray\"",
                                 "pause\" ms: 1",
                                 "stall\" ms: 1",
                                 "object-state\" code: 9 ms: 1"}) {
    EXPECT_THAT(Errors(ParseFaultFile("fault { what: \"" + text + " }", {})), ElementsAre())
        << text;
  }
}

TEST(ParseFaultFile, AcceptsAnEmptyFile) {
  auto plan = ParseFaultFile("# nothing\n", {});
  ASSERT_TRUE(std::holds_alternative<std::unique_ptr<ServerFaults>>(plan));
  auto& faults = std::get<std::unique_ptr<ServerFaults>>(plan);
  EXPECT_EQ(faults->OnAccept().entry, ServerFaults::ConnectionFate::Entry::kServe);
}

TEST(ReadFaultFile, ReadsAFile) {
  const TestFolder folder;
  std::ofstream(folder.Path("faults")) << "fault { }";
  EXPECT_THAT(Errors(ReadFaultFile(folder.Path("faults"), {})),
              ElementsAre(StartsWith("f:1:1: a fault has no what")));
}

TEST(ReadFaultFile, NamesAFileThatItCannotRead) {
  const TestFolder folder;
  EXPECT_THAT(Errors(ReadFaultFile(folder.Path("no"), {})),
              ElementsAre("f: cannot read the file: No such file or directory; give the path of a "
                          "readable fault file"));
  EXPECT_THAT(Errors(ReadFaultFile(folder.Path(""), {})),
              ElementsAre("f: cannot read the file: Is a directory; give the path of a readable "
                          "fault file"));
}

TEST(FaultPlan, TellsWhatHappens) {
  std::vector<std::string> lines;
  auto plan = ParseFaultFile(
      R"(fault { what: "swallow" of: "vlan" nth: 2 times: 2 } fault { what: "refuse" })",
      {[&lines](LogLevel, const std::string& line) { lines.push_back(line); }, {}});
  ASSERT_TRUE(std::holds_alternative<std::unique_ptr<ServerFaults>>(plan));
  auto& faults = std::get<std::unique_ptr<ServerFaults>>(plan);
  const HalTables tables(10);
  const HalRequest request{HalOperation::kInstallVlan, 5, 0, Vlan(5).SerializeAsString()};
  faults->OnAccept();
  for (int count = 0; count < 5; ++count) faults->OnRequest(request, tables);
  EXPECT_THAT(lines, ElementsAre("fault: refuse on a connection, 1 of 1",
                                 "fault: swallow on install-vlan, 1 of 2",
                                 "fault: swallow on install-vlan, 2 of 2"));
}

TEST(FaultPlan, AStrayResultLeavesAPauseAsItIs) {
  auto plan =
      ParseFaultFile(R"(fault { what: "pause" ms: 600000 } fault { what: "stray" nth: 2 })", {});
  ASSERT_TRUE(std::holds_alternative<std::unique_ptr<ServerFaults>>(plan));
  auto& faults = std::get<std::unique_ptr<ServerFaults>>(plan);
  const HalTables tables(10);
  const HalRequest request{HalOperation::kInstallVlan, 5, 0, Vlan(5).SerializeAsString()};
  const ServerFaults::RequestFate first = faults->OnRequest(request, tables);
  const ServerFaults::RequestFate second = faults->OnRequest(request, tables);
  EXPECT_FALSE(first.stray);
  EXPECT_TRUE(second.stray);
  EXPECT_EQ(second.due, first.due);
}

TEST(FaultPlanDeathTest, ACrashEndsTheProcess) {
  auto plan = ParseFaultFile("", {});
  auto& faults = std::get<std::unique_ptr<ServerFaults>>(plan);
  EXPECT_EXIT(faults->Crash(), ::testing::ExitedWithCode(kFaultCrashExitCode), "");
}

}  // namespace
}  // namespace reference
