#include "reference/manager/views/report.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>

#include "reference/manager/views/explain.h"
#include "reference/manager/views/graph.h"
#include "reference/manager/views/graph_file.h"
#include "reference/manager/views/progress.h"
#include "tests/manager/sites.h"
#include "tests/support/terminal.h"
#include "tests/support/test_folder.h"

namespace reference {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using ::testing::HasSubstr;

/// A database in which vlan:11 found its table full, with the consequences, and an inactive tunnel.
class ReportTest : public ::testing::Test {
 protected:
  ReportTest() {
    Site site = SiteOfAllKinds();
    site.mpls.push_back(TunnelEntry(42, 10, 0));
    site.vlans[0].name = "c\xC3\xB4re \"a\"";
    site.vlans[0].vrf = 7;
    for (Object* const entry : database_.Replace(site).changed) {
      database_.SetState(
          entry, entry->key.kind == HalKind::kVrf ? ObjectState::kSent : ObjectState::kInstalled);
      entry->presence = Presence::kPresent;
    }
    Fail(HalKind::kVlan, 11, kHalTableFull);
    Fail(HalKind::kHost, 21, kHalMissingReference);
    Fail(HalKind::kMpls, 41, kHalMissingReference);
    Fail(HalKind::kMpls, 40, kHalMissingReference);
    Fail(HalKind::kEcmp, 30, kHalMissingReference);
  }

  void Fail(HalKind kind, std::uint32_t id, HalReturnCode code) {
    Object* const object = database_.Find({kind, id});
    object->presence = Presence::kAbsent;
    object->code = code;
    database_.SetState(object, ObjectState::kFailed);
  }

  Object* Find(HalKind kind, std::uint32_t id) { return database_.Find({kind, id}); }

  std::string ExplainText(HalKind kind, std::uint32_t id) const {
    return Explain(database_, {kind, id}).value_or("no such object");
  }

  DestDatabase database_;
};

TEST_F(ReportTest, Table) {
  std::ostringstream out;
  WriteTable(database_, &out);
  EXPECT_EQ(out.str(),
            "KIND  ID  NAME        STATE      REASON\n"
            "vrf   1   vrf-1       sent\n"
            "vlan  10  c\xC3\xB4re \"a\"    installed\n"
            "vlan  11  vlan-11     failed     table full\n"
            "host  20  host-20     installed\n"
            "host  21  host-21     failed     a destination that it refers to does not exist in "
            "the HAL\n"
            "ecmp  30  ecmp-30     failed     a destination that it refers to does not exist in "
            "the HAL\n"
            "mpls  40  circuit-40  failed     a destination that it refers to does not exist in "
            "the HAL\n"
            "mpls  41  tunnel-41   failed     a destination that it refers to does not exist in "
            "the HAL\n"
            "mpls  42  tunnel-42   inactive   no active neighbor: dropping\n"
            "\n"
            "installed  The HAL has confirmed that it holds the object.\n"
            "inactive   The HAL holds it, but it drops packets: it has no active neighbor.\n"
            "sent       The HAL has accepted the request; a VRF gets no other confirmation.\n"
            "failed     The HAL refused it, gave no answer, or lost it since; see REASON.\n"
            "9 objects: 2 installed, 1 inactive, 1 sent, 5 failed\n");
}

TEST(EmptyReportTest, Table) {
  std::ostringstream out;
  WriteTable(DestDatabase(), &out);
  EXPECT_EQ(out.str(), "0 objects\n");
}

TEST_F(ReportTest, Json) {
  database_.SetState(Find(HalKind::kHost, 20), ObjectState::kRemoved);
  database_.SetState(Find(HalKind::kEcmp, 30), ObjectState::kPending);
  std::ostringstream out;
  WriteJson(database_, &out);
  EXPECT_EQ(
      out.str(),
      "{\"objects\":[\n"
      R"({"kind":"vrf","id":1,"name":"vrf-1","state":"sent","code":0,"reason":""},)"
      "\n"
      R"({"kind":"vlan","id":10,"name":"c\u00f4re \"a\"","state":"installed","code":0,"reason":""},)"
      "\n"
      R"({"kind":"vlan","id":11,"name":"vlan-11","state":"failed","code":5,"reason":"table full"},)"
      "\n"
      R"({"kind":"host","id":20,"name":"host-20","state":"removed","code":0,"reason":""},)"
      "\n"
      R"({"kind":"host","id":21,"name":"host-21","state":"failed","code":1,"reason":"a destination that it refers to does not exist in the HAL"},)"
      "\n"
      R"({"kind":"ecmp","id":30,"name":"ecmp-30","state":"pending","code":1,"reason":""},)"
      "\n"
      R"({"kind":"mpls","id":40,"name":"circuit-40","state":"failed","code":1,"reason":"a destination that it refers to does not exist in the HAL"},)"
      "\n"
      R"({"kind":"mpls","id":41,"name":"tunnel-41","state":"failed","code":1,"reason":"a destination that it refers to does not exist in the HAL"},)"
      "\n"
      R"({"kind":"mpls","id":42,"name":"tunnel-42","state":"inactive","code":0,"reason":"no active neighbor: dropping"})"
      "\n],\n"
      R"("summary":{"objects":9,"installed":1,"inactive":1,"sent":1,"removed":1,"pending":1,"failed":4}})"
      "\n");
  EXPECT_EQ(nlohmann::json::parse(out.str())["objects"].size(), 9U);
}

TEST_F(ReportTest, ExplainsDownToTheFirstCause) {
  EXPECT_EQ(ExplainText(HalKind::kEcmp, 30),
            "ecmp:30 \"ecmp-30\" failed: a destination that it refers to does not exist in the "
            "HAL\n"
            "  it lacks member mpls:40 \"circuit-40\", which failed: a destination that it refers "
            "to does not exist in the HAL\n"
            "    it rides on mpls:41 \"tunnel-41\", which failed: a destination that it refers to "
            "does not exist in the HAL\n"
            "      it rides on vlan:11 \"vlan-11\", which failed: table full\n");
}

TEST_F(ReportTest, NamesControlNothing) {
  Find(HalKind::kVlan, 11)->name = "a\x1b\u009b\u202e\xff";
  const std::string shown = R"(a\x1b\u009b\u202e\xff)";
  std::ostringstream table;
  WriteTable(database_, &table);
  EXPECT_THAT(table.str(), HasSubstr("  " + shown + "  "));
  std::ostringstream json;
  WriteJson(database_, &json);
  EXPECT_THAT(json.str(), HasSubstr(R"("a\u001b\u009b\u202e\ufffd")"));
  EXPECT_EQ(ExplainText(HalKind::kVlan, 11), "vlan:11 \"" + shown + "\" failed: table full\n");
  // Graphviz reads a doubled backslash as one.
  EXPECT_THAT(GraphText(NodesOf(database_)), HasSubstr(R"("a\\x1b\\u009b\\u202e\\xff\nvlan:11")"));
}

TEST_F(ReportTest, GraphvizReadsNoEntityInAName) {
  Find(HalKind::kVlan, 11)->name = "a &amp; b";
  EXPECT_THAT(GraphText(NodesOf(database_)), HasSubstr(R"("a &amp;amp; b\nvlan:11")"));
}

TEST_F(ReportTest, ExplainsWithTheHalsReason) {
  Find(HalKind::kVlan, 11)->code = kHalKernelRefused;
  Find(HalKind::kVlan, 11)->set_reason("no memory");
  EXPECT_EQ(ExplainText(HalKind::kVlan, 11),
            "vlan:11 \"vlan-11\" failed: refused by the kernel: no memory\n");
}

TEST_F(ReportTest, ExplainsEveryStanding) {
  EXPECT_EQ(ExplainText(HalKind::kVlan, 10), "vlan:10 \"c\xC3\xB4re \\\"a\\\"\" is installed\n");
  EXPECT_EQ(ExplainText(HalKind::kVlan, 11), "vlan:11 \"vlan-11\" failed: table full\n");
  EXPECT_EQ(ExplainText(HalKind::kVrf, 1), "vrf:1 \"vrf-1\" was sent; the HAL has accepted it\n");
  EXPECT_EQ(ExplainText(HalKind::kMpls, 42),
            "mpls:42 \"tunnel-42\" is installed but inactive: no active neighbor: dropping\n");
  database_.SetState(Find(HalKind::kHost, 20), ObjectState::kPending);
  EXPECT_EQ(ExplainText(HalKind::kHost, 20),
            "host:20 \"host-20\" is pending: its request is not sent or not answered yet\n");
  database_.SetState(Find(HalKind::kHost, 20), ObjectState::kRemoved);
  EXPECT_EQ(ExplainText(HalKind::kHost, 20), "host:20 \"host-20\" was removed\n");
  EXPECT_EQ(ExplainText(HalKind::kHost, 99), "no such object");
}

TEST(ObjectKeyTest, IsReadFromText) {
  EXPECT_EQ(ParseObjectKey("vlan:10"), (ObjectKey{HalKind::kVlan, 10}));
  EXPECT_EQ(ParseObjectKey("mpls:4294967295"), (ObjectKey{HalKind::kMpls, 4294967295U}));
  for (const char* const text : {"", ":", "vlan", "vlan:", "vlan:x", "vlan:10x", "vlan:-1",
                                 "vlan: 1", "vlans:10", ":10", "vlan:4294967296", "VLAN:10"}) {
    EXPECT_FALSE(ParseObjectKey(text).has_value()) << text;
  }
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(ReportTest, GraphHasEveryObjectAndWhatItRidesOn) {
  const std::string text = GraphText(NodesOf(database_));
  for (const char* const line :
       {"\"vlan:10\" [label=\"c\xC3\xB4"
        R"(re \"a\"\nvlan:10", shape=tab, fillcolor="#b7e1b5"];)",
        R"("vlan:11" [label="vlan-11\nvlan:11", shape=tab, fillcolor="#f4a9a0"];)",
        R"("vrf:1" [label="vrf-1\nvrf:1", shape=box3d, fillcolor="#b9d7f2"];)",
        R"("mpls:42" [label="tunnel-42\nmpls:42", shape=octagon, fillcolor="#ffd79a"];)",
        R"("mpls:40" [label="circuit-40\nmpls:40", shape=oval, fillcolor="#f4a9a0"];)",
        R"("ecmp:30" -> "host:20";)", R"("ecmp:30" -> "mpls:40";)", R"("host:20" -> "vlan:10";)",
        R"("mpls:40" -> "mpls:41";)", R"("mpls:41" -> "vlan:11";)", R"("vlan:10" -> "vrf:1";)",
        R"("mpls:40" -> "host:21" [style=dashed, constraint=false];)"}) {
    EXPECT_TRUE(Contains(text, line)) << line << "\nis not in\n" << text;
  }
  EXPECT_FALSE(Contains(text, R"("mpls:42" -> "host)"));
}

TEST_F(ReportTest, TheGraphAroundAnObjectHasItsNeighbor) {
  Site site = SiteOfAllKinds();
  site.mpls[1].neighbor = 20;
  DestDatabase database;
  static_cast<void>(database.Replace(site));
  const GraphNodes nodes = NodesOf(database);
  const auto keys = [&nodes](const ObjectKey& around) {
    std::string text;
    for (const auto& [key, node] : NodesAround(nodes, around)) text += KeyText(key) + ' ';
    return text;
  };
  EXPECT_EQ(keys({HalKind::kMpls, 41}), "vlan:10 vlan:11 host:20 ecmp:30 mpls:40 mpls:41 ");
  EXPECT_EQ(keys({HalKind::kHost, 20}), "vlan:10 host:20 ecmp:30 mpls:40 mpls:41 ");
}

TEST_F(ReportTest, GraphLeavesOutWhatWasRemoved) {
  database_.SetState(Find(HalKind::kHost, 21), ObjectState::kRemoved);
  EXPECT_FALSE(Contains(GraphText(NodesOf(database_)), "host:21"));
}

TEST_F(ReportTest, GraphFoldsManyHostsThatNothingRefersTo) {
  Site site = SiteOfAllKinds();
  for (std::uint32_t id = 50; id < 55; ++id) site.hosts.push_back(HostEntry(id, 10));
  DestDatabase database;
  for (Object* const entry : database.Replace(site).changed)
    database.SetState(entry, ObjectState::kInstalled);
  // Of the five hosts on VLAN 10, the failed one is not grouped with the others.
  database.SetState(database.FindEntry({HalKind::kHost, 52}), ObjectState::kFailed);
  const std::string text = GraphText(NodesOf(database));
  EXPECT_TRUE(Contains(text, R"("hosts from host:50" [label="host-50 ... host-54\n4 hosts", )"
                             R"(shape=box, peripheries=2, fillcolor="#b7e1b5"];)"))
      << text;
  EXPECT_TRUE(Contains(text, R"("hosts from host:50" -> "vlan:10";)"));
  EXPECT_FALSE(Contains(text, R"("host:51")"));
  EXPECT_TRUE(Contains(text, R"("host:52" -> "vlan:10";)"));
  // A group's member is always shown, however many hosts there are.
  EXPECT_TRUE(Contains(text, R"("host:20" -> "vlan:10";)"));
}

class GraphFileTest : public ReportTest {
 protected:
  std::string Read(const fs::path& path) const {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::size_t FileCount() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory_), fs::directory_iterator()));
  }

  const TestFolder folder_;
  const fs::path directory_ = folder_.Path("");
};

TEST_F(GraphFileTest, WritesDotText) {
  for (const char* const name : {"a.dot", "a.gv"}) {
    ASSERT_TRUE(GraphFile::IsName(name));
    GraphFile(directory_ / name).Write(GraphText(NodesOf(database_)));
    EXPECT_EQ(Read(directory_ / name), GraphText(NodesOf(database_)));
  }
  EXPECT_FALSE(GraphFile::IsName("a.png"));
}

TEST_F(GraphFileTest, LeavesTheFileWhenDotIsMissing) {
  const fs::path path = directory_ / "a.svg";
  std::ofstream(path) << "before";
  const std::string search = std::getenv("PATH");
  setenv("PATH", directory_.c_str(), 1);
  try {
    GraphFile file(path);
    ADD_FAILURE() << "it found a program in an empty directory";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(),
                 "cannot draw the graph: dot is missing; install the package graphviz or write a "
                 ".dot file");
  }
  setenv("PATH", search.c_str(), 1);
  EXPECT_EQ(Read(path), "before");
  EXPECT_EQ(FileCount(), 1U);
}

// A fake `dot`: its drawing is its input.
TEST_F(GraphFileTest, DrawsWithDot) {
  const fs::path path = directory_ / "a.svg";
  const fs::path bin = directory_ / "bin";
  fs::create_directory(bin);
  std::ofstream(bin / "dot") << "#!/bin/sh\n[ $1 != -Tsvg ] || cat\n";
  fs::permissions(bin / "dot", fs::perms::owner_all);
  const std::string search = std::getenv("PATH");
  setenv("PATH", (bin.string() + ':' + search).c_str(), 1);
  GraphFile(path).Write(GraphText(NodesOf(database_)));
  EXPECT_EQ(Read(path), GraphText(NodesOf(database_)));

  std::ofstream(bin / "dot") << "#!/bin/sh\nexit 1\n";
  EXPECT_THROW(GraphFile(path).Write(GraphText(GraphNodes())), std::runtime_error);
  setenv("PATH", search.c_str(), 1);
  EXPECT_EQ(Read(path), GraphText(NodesOf(database_)));
  EXPECT_EQ(FileCount(), 2U);
}

TEST_F(GraphFileTest, NamesWhatCannotBeWritten) {
  const std::string path = directory_ / "missing" / "a.dot";
  EXPECT_THROW(GraphFile{path}, std::runtime_error);
}

TEST(ProgressTest, Bars) {
  EXPECT_EQ(ProgressBar("installing", {0, 10, milliseconds(0)}, 79),
            "installing [                                        ]   0% 0 objects/s");
  EXPECT_EQ(ProgressBar("installing", {5, 10, milliseconds(2500)}, 200),
            "installing [####################                    ]  50% 2 objects/s");
  EXPECT_EQ(ProgressBar("installing", {10, 10, milliseconds(1000)}, 79),
            "installing [########################################] 100% 10 objects/s");
}

TEST(ProgressTest, WithoutATotalThereIsNoBar) {
  EXPECT_EQ(ProgressBar("reading a.txtpb", {0, 0, milliseconds(4200)}, 79), "reading a.txtpb: 4 s");
}

TEST(ProgressTest, FitsNarrowTerminals) {
  const ProgressState half = {50, 100, milliseconds(1000)};
  EXPECT_EQ(ProgressBar("installing", half, 42), "installing [#####      ]  50% 50 objects/s");
  EXPECT_EQ(ProgressBar("installing", half, 41), "installing [#####     ]  50% 50 objects/s");
  EXPECT_EQ(ProgressBar("installing", half, 40), "installing  50% 50 objects/s");
}

LogSink::Options To(int fd) {
  LogSink::Options options;
  options.fd = fd;
  return options;
}

TEST(ProgressTest, ShowsLongWorkOnATerminalOnly) {
  const Terminal terminal(80);
  LogSink log("manager", To(terminal.program()));
  {
    Progress progress("short", &log);
    progress.Set(1, 2);
  }
  const auto start = std::chrono::steady_clock::now();
  Progress progress("long", &log);
  progress.Set(1, 2);
  EXPECT_EQ(terminal.Read(26), "long [####################");
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(1000));
}

TEST(ProgressTest, ShowsNothingWhereThereIsNoTerminal) {
  const TestFolder folder;
  const int file = open(folder.Path("log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR);
  ASSERT_GE(file, 0);
  {
    LogSink log("manager", To(file));
    Progress progress("long", &log);
    progress.Set(1, 2);
    std::this_thread::sleep_for(milliseconds(1200));
  }
  close(file);
  EXPECT_EQ(fs::file_size(folder.Path("log")), 0U);
}

}  // namespace
}  // namespace reference
