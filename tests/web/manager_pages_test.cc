// What a manager serves: the API's answers, their pages and their history.

#include "reference/manager/web/manager_pages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "reference/hal/hal_code.h"
#include "reference/manager/engine/manager.h"
#include "reference/manager/web/change_history.h"
#include "tests/manager/scripted_hal.h"
#include "tests/manager/sites.h"

namespace reference {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Json = nlohmann::ordered_json;

/// A manager with a scripted HAL, and its pages, all on the test's thread.
class ManagerPagesTest : public ::testing::Test {
 protected:
  ManagerPagesTest() : manager_(&io_, Events()), pages_(Watched()) {}

  WatchedManager Watched() {
    return {&manager_, &hal_, [this] { return head_; },
            [this]() -> const InterfaceNames& { return interfaces_; }};
  }

  void Start(const Site& site) {
    manager_.Apply(site);
    manager_.Start(&hal_);
    hal_.FindServer();
    io_.poll();
  }

  void Run() {
    io_.restart();
    io_.poll();
  }

  // Everything is in place, except for what an earlier `Answer` has refused.
  void Settle() {
    for (Run(); hal_.outstanding() != 0; Run()) hal_.AnswerAll();
    hal_.EndReinstalls();
    Run();
  }

  HttpResponse Get(const std::string& target) {
    try {
      HttpAnswer answer = pages_.Get(ParseTarget(target));
      if (auto* const response = std::get_if<HttpResponse>(&answer)) return *response;
      return Answer(std::get<std::shared_ptr<Query>>(answer));
    } catch (const HttpError& error) {
      return ErrorResponse(error.status(), error.what());
    }
  }

  HttpResponse Answer(std::shared_ptr<Query> query) {
    for (;;) {
      do {
        ++steps_;
      } while (!query->Step());
      QueryResult result = query->Finish();
      if (auto* const response = std::get_if<HttpResponse>(&result)) return *response;
      query = std::get<std::shared_ptr<Query>>(result);
    }
  }

  Json GetJson(const std::string& target) {
    const HttpResponse response = Get(target);
    EXPECT_EQ(response.status, 200U) << response.body;
    EXPECT_EQ(response.type, "application/json");
    return Json::parse(response.body);
  }

  // The keys of a page of the list.
  std::vector<std::string> Keys(const std::string& target) {
    std::vector<std::string> keys;
    const Json page = GetJson(target);
    for (const Json& object : page.at("objects")) keys.push_back(object.at("key"));
    return keys;
  }

  ManagerEvents Events() {
    ManagerEvents events;
    events.standing_changed = [this](const Object& object) { pages_.Changed(object); };
    return events;
  }

  boost::asio::io_context io_;
  StatusHead head_;
  InterfaceNames interfaces_;
  Manager manager_;
  ScriptedHal hal_;
  ManagerPages pages_;
  int steps_ = 0;
};

TEST_F(ManagerPagesTest, TheStatusSaysHowThingsStand) {
  head_.site = "/etc/site.txtpb";
  head_.hal = "unix:/run/hal.sock";
  Start(SiteOfAllKinds());
  Json status = GetJson("/api/status");
  EXPECT_EQ(status["site"], "/etc/site.txtpb");
  EXPECT_EQ(status["connected"], true);
  EXPECT_EQ(status["settled"], false);
  EXPECT_EQ(status["connection"]["last_in_sync_ms"], nullptr);
  EXPECT_EQ(status["instance"].get<std::string>().size(), 16U);
  Settle();
  EXPECT_EQ(GetJson("/api/status")["settled"], true);
  EXPECT_EQ(GetJson("/api/status")["instance"], status["instance"]);
}

TEST_F(ManagerPagesTest, TheStatusShowsTheReinstall) {
  const std::chrono::system_clock::time_point start(std::chrono::seconds(1000));
  head_.reinstall.started = start;
  head_.reinstall.done = 3;
  head_.reinstall.total = 8;
  Json reinstall = GetJson("/api/status")["reinstall"];
  EXPECT_EQ(reinstall, Json::parse(R"({"running":true,"done":3,"total":8,"started_ms":1000000,)"
                                   R"("last":null})"));
  head_.reinstall = {};
  head_.reinstall.last = {8, std::chrono::microseconds(1500), start};
  reinstall = GetJson("/api/status")["reinstall"];
  EXPECT_EQ(reinstall["running"], false);
  EXPECT_EQ(reinstall["last"],
            Json::parse(R"({"objects":8,"duration_ms":1.5,"ended_ms":1000000})"));
}

TEST_F(ManagerPagesTest, TheListBeginsWithWhatFailed) {
  Start(SiteOfAllKinds());
  hal_.Answer("install-vlan 11", kHalLabelOutOfRange);
  Settle();
  EXPECT_THAT(Keys("/api/objects"), ElementsAre("vlan:11", "vrf:1", "vlan:10", "host:20", "host:21",
                                                "ecmp:30", "mpls:40", "mpls:41"));
  const Json list = GetJson("/api/objects?limit=1");
  EXPECT_EQ(list["objects"][0]["state"], "failed");
  EXPECT_EQ(list["objects"][0]["code"], 2);
  EXPECT_EQ(list["objects"][0]["name"], "vlan-11");
}

TEST_F(ManagerPagesTest, PagesJoinWithoutGapsOrRepeats) {
  Start(SiteOfAllKinds());
  hal_.Answer("install-vlan 11", kHalLabelOutOfRange);
  Settle();
  for (const std::string limit : {"1", "2", "3", "7", "8"}) {
    std::vector<std::string> keys;
    std::string after;
    for (int pages = 0; pages < 20; ++pages) {
      const Json page = GetJson("/api/objects?limit=" + limit + after);
      for (const Json& object : page["objects"]) keys.push_back(object["key"]);
      if (page["next"].is_null()) break;
      after = "&after=" + page["next"].get<std::string>();
    }
    EXPECT_THAT(keys, ElementsAre("vlan:11", "vrf:1", "vlan:10", "host:20", "host:21", "ecmp:30",
                                  "mpls:40", "mpls:41"))
        << limit;
  }
}

TEST_F(ManagerPagesTest, TheListIsFiltered) {
  Start(SiteOfAllKinds());
  hal_.Answer("install-vlan 11", kHalLabelOutOfRange);
  Settle();
  EXPECT_THAT(Keys("/api/objects?kind=vlan"), ElementsAre("vlan:11", "vlan:10"));
  EXPECT_THAT(Keys("/api/objects?kind=mpls,vrf"), ElementsAre("vrf:1", "mpls:40", "mpls:41"));
  EXPECT_THAT(Keys("/api/objects?state=failed"), ElementsAre("vlan:11"));
  EXPECT_THAT(Keys("/api/objects?state=sent,failed"), ElementsAre("vlan:11", "vrf:1"));
  EXPECT_THAT(Keys("/api/objects?state=removed"), IsEmpty());
  EXPECT_THAT(Keys("/api/objects?kind=host&state=failed"), IsEmpty());
  EXPECT_THAT(Keys("/api/objects?q=HOST-2"), ElementsAre("host:20", "host:21"));
  EXPECT_THAT(Keys("/api/objects?q=mpls:40"), ElementsAre("mpls:40"));
  EXPECT_THAT(Keys("/api/objects?q=LABEL"), ElementsAre("vlan:11"));
  EXPECT_THAT(Keys("/api/objects?q=nothing"), IsEmpty());
}

TEST_F(ManagerPagesTest, TheNameOfAnInterfaceFindsWhatIsOnIt) {
  interfaces_ = {{5, "eth1"}, {6, "eth11"}};
  Site site = SiteOfAllKinds();
  site.vlans[0].lim_id = 5;
  site.hosts[1].lim_id = 6;
  site.mpls[1].lim_id = 5;
  Start(site);
  EXPECT_THAT(Keys("/api/objects?q=ETH1"), ElementsAre("vlan:10", "mpls:41"));
  EXPECT_EQ(GetJson("/api/objects?q=eth11")["objects"][0]["interface"], "eth11");
  EXPECT_EQ(GetJson("/api/objects?q=vrf:1")["objects"][0]["interface"], nullptr);
}

TEST_F(ManagerPagesTest, RemovedObjectsAreListedOnlyIfAskedFor) {
  Start(SiteOfAllKinds());
  Settle();
  Site site = SiteOfAllKinds();
  site.vrfs.clear();
  manager_.Apply(site);
  Settle();
  EXPECT_THAT(Keys("/api/objects?kind=vrf"), IsEmpty());
  EXPECT_THAT(Keys("/api/objects?kind=vrf&state=removed"), ElementsAre("vrf:1"));
}

TEST_F(ManagerPagesTest, RowsCanBeSkipped) {
  Site site;
  for (std::uint32_t id = 1; id <= 30; ++id) site.vlans.push_back(VlanEntry(id));
  Start(site);
  EXPECT_THAT(Keys("/api/objects?skip=2&limit=2"), ElementsAre("vlan:3", "vlan:4"));
  EXPECT_THAT(Keys("/api/objects?after=r.vlan:4&skip=1&limit=1"), ElementsAre("vlan:6"));
  // Only rows that the search finds count: 2, 20 to 29.
  EXPECT_THAT(Keys("/api/objects?q=vlan-2&skip=1&limit=2"), ElementsAre("vlan:20", "vlan:21"));
  const Json end = GetJson("/api/objects?skip=4294967295");
  EXPECT_EQ(end["skipped"], 30);
  EXPECT_THAT(end["objects"], IsEmpty());
  EXPECT_EQ(end["next"], nullptr);
}

TEST_F(ManagerPagesTest, SkippedRowsAreExaminedToo) {
  Site site;
  for (std::uint32_t id = 1; id <= 3000; ++id) site.vlans.push_back(VlanEntry(id));
  manager_.Apply(site);
  WatchedManager watched = Watched();
  watched.max_examined = 1024;
  const Json page = Json::parse(Answer(AskObjects(watched, ParseTarget("/?skip=2000"))).body);
  EXPECT_THAT(page["objects"], IsEmpty());
  EXPECT_EQ(page["skipped"], 1024);
  EXPECT_EQ(page["next"], "r.vlan:1024");
}

TEST_F(ManagerPagesTest, ALongListIsReadInShortSteps) {
  Site site;
  for (std::uint32_t id = 1; id <= 2000; ++id) site.vlans.push_back(VlanEntry(id));
  Start(site);
  EXPECT_EQ(GetJson("/api/objects?q=vlan-2000")["examined"], 2000);
  EXPECT_GE(steps_, 4);
  steps_ = 0;
  EXPECT_EQ(GetJson("/api/objects?limit=10")["examined"], 10);
  EXPECT_EQ(steps_, 1);
}

TEST_F(ManagerPagesTest, ARequestExaminesABoundedNumberOfObjects) {
  Site site;
  for (std::uint32_t id = 1; id <= 3000; ++id) site.vlans.push_back(VlanEntry(id));
  manager_.Apply(site);
  WatchedManager watched = Watched();
  watched.max_examined = 1024;
  const Json page = Json::parse(Answer(AskObjects(watched, ParseTarget("/?q=vlan-1500"))).body);
  EXPECT_THAT(page["objects"], IsEmpty());
  EXPECT_EQ(page["examined"], 1024);
  EXPECT_EQ(page["next"], "r.vlan:1024");
  EXPECT_THAT(Keys("/api/objects?q=vlan-1500&after=r.vlan:1024"), ElementsAre("vlan:1500"));
}

TEST_F(ManagerPagesTest, AnObjectHasItsFieldsAndItsNeighbours) {
  interfaces_ = {{5, "eth1"}};
  Site site = SiteOfAllKinds();
  site.vlans[1].lim_id = 5;
  site.vlans[1].vrf = 7;
  site.vlans[1].source_mac = Mac{2, 0, 0, 0, 1, 10};
  Start(site);
  Settle();
  Json vlan = GetJson("/api/objects/vlan/11");
  EXPECT_EQ(vlan["object"]["key"], "vlan:11");
  EXPECT_EQ(vlan["wanted"], true);
  EXPECT_EQ(vlan["fields"]["interface"], "eth1");
  EXPECT_EQ(vlan["fields"]["source_mac_address"], "02:00:00:00:01:0a");
  EXPECT_EQ(vlan["fields"]["mtu"], 1500);
  EXPECT_EQ(vlan["vrf"], Json::parse(R"({"key":"vrf:1","name":"vrf-1","state":"sent"})"));
  EXPECT_EQ(vlan["neighbor"], nullptr);
  Json tunnel = GetJson("/api/objects/mpls/41");
  EXPECT_EQ(tunnel["rides_on"],
            Json::parse(R"([{"key":"vlan:11","name":"vlan-11","state":"installed"}])"));
  EXPECT_EQ(tunnel["neighbor"]["key"], "host:21");
  EXPECT_EQ(GetJson("/api/objects/ecmp/30")["rides_on"].size(), 2U);
}

TEST_F(ManagerPagesTest, AnObjectIsExplained) {
  Start(SiteOfAllKinds());
  hal_.Answer("install-vlan 11", kHalLabelOutOfRange);
  hal_.Answer("install-host 21", kHalMissingReference);
  hal_.Answer("install-mpls 41", kHalMissingReference);
  hal_.Answer("install-mpls 40", kHalMissingReference);
  Settle();
  const Json explained = GetJson("/api/objects/mpls/40/explain");
  EXPECT_EQ(explained["key"], "mpls:40");
  EXPECT_EQ(explained["in_place"], false);
  EXPECT_EQ(explained["connected"], true);
  ASSERT_EQ(explained["steps"].size(), 3U);
  EXPECT_EQ(explained["steps"][0]["key"], "mpls:40");
  EXPECT_EQ(explained["steps"][1]["key"], "mpls:41");
  EXPECT_EQ(explained["steps"][2]["key"], "vlan:11");
  EXPECT_THAT(explained["steps"][2]["text"],
              HasSubstr("it rides on vlan:11 \"vlan-11\", which failed: "));
  EXPECT_EQ(GetJson("/api/objects/vlan/10/explain")["in_place"], true);
}

TEST_F(ManagerPagesTest, UnknownThingsAreNotFound) {
  Start(SiteOfAllKinds());
  for (const char* const target :
       {"/api", "/api/", "/api/nothing", "/api/objects/vlan/99", "/api/objects/vlan/99/explain",
        "/api/objects/vlan/10/nothing", "/api/graph?around=vlan:99", "/nothing.js", "/../page.css",
        "/page/index.html", "/metrics/", "//"}) {
    EXPECT_EQ(Get(target).status, 404U) << target;
  }
}

TEST_F(ManagerPagesTest, WrongParametersAreRefused) {
  for (const char* const target : {"/api/status?x=1",
                                   "/metrics?x=1",
                                   "/api/rates?x=1",
                                   "/api/events?x=1",
                                   "/api/objects?kind=tunnel",
                                   "/api/objects?kind=vlan,",
                                   "/api/objects?state=down",
                                   "/api/objects?limit=0",
                                   "/api/objects?limit=1001",
                                   "/api/objects?after=x",
                                   "/api/objects?after=r.vlan",
                                   "/api/objects?after=rvlan:1",
                                   "/api/objects?after=r.",
                                   "/api/objects?x=1",
                                   "/api/objects/vlan/x",
                                   "/api/objects/vlan/-1",
                                   "/api/objects/vlan/4294967296",
                                   "/api/objects/tunnel/1",
                                   "/api/objects/vlan/10?x=1",
                                   "/api/graph",
                                   "/api/graph?around=eth1",
                                   "/api/graph?around=vlan:10&depth=0",
                                   "/api/graph?around=vlan:10&depth=9",
                                   "/api/graph?around=vlan:10&format=png",
                                   "/api/changes?key=eth1",
                                   "/api/changes?state=down",
                                   "/api/changes?limit=0",
                                   "/api/changes?before=-1"}) {
    EXPECT_EQ(Get(target).status, 400U) << target;
  }
  EXPECT_EQ(Get("/api/objects?q=" + std::string(201, 'x')).status, 400U);
  EXPECT_EQ(Get("/api/objects?q=" + std::string(200, 'x')).status, 200U);
}

TEST_F(ManagerPagesTest, HostileNamesCannotLeaveTheirPlace) {
  const std::string name = "<script>alert(1)</script>\"]};\n\x1b[2J\xe2\x80\xae\xe2\x80\xac\xff";
  const std::string shown = "<script>alert(1)</script>\"]};\\n\\x1b[2J\\u202e\\u202c\\xff";
  Site site = SiteOfAllKinds();
  site.vlans[0].name = name;
  Start(site);
  EXPECT_EQ(GetJson("/api/objects?kind=vlan")["objects"][0]["name"], shown);
  EXPECT_EQ(GetJson("/api/objects/vlan/10")["object"]["name"], shown);
  EXPECT_THAT(GetJson("/api/objects/vlan/10/explain")["steps"][0]["text"],
              HasSubstr("<script>alert(1)</script>\\\"]};\\n"));
  const HttpResponse drawing = Get("/api/graph?around=vlan:10");
  EXPECT_EQ(drawing.type, "image/svg+xml");
  EXPECT_THAT(drawing.body, AllOf(Not(HasSubstr("<script")), HasSubstr("&lt;script&gt;")));
}

TEST_F(ManagerPagesTest, TheNeighbourhoodOfAnObjectIsDrawn) {
  Start(SiteOfAllKinds());
  Settle();
  const HttpResponse drawing = Get("/api/graph?around=mpls:41&depth=1");
  EXPECT_EQ(drawing.type, "image/svg+xml");
  for (const char* const part :
       {"id=\"vlan:11\" class=\"node installed\"", "id=\"mpls:41\" class=\"node installed\"",
        "id=\"mpls:40\" class=\"node installed\"", "id=\"host:21\" class=\"node installed\"",
        "xlink:href=\"#object=vlan:11\""}) {
    EXPECT_THAT(drawing.body, HasSubstr(part));
  }
  for (const char* const part : {"vlan:10", "ecmp:30", "legend"}) {
    EXPECT_THAT(drawing.body, Not(HasSubstr(part)));
  }
}

TEST_F(ManagerPagesTest, ANeighbourhoodCanBeReadWithoutADrawing) {
  Site site = SiteOfAllKinds();
  site.vlans[1].vrf = 7;
  Start(site);
  Settle();
  const Json graph = GetJson("/api/graph?around=mpls:41&format=json");
  EXPECT_EQ(graph["around"], "mpls:41");
  EXPECT_EQ(graph["depth"], 3);
  EXPECT_EQ(graph["left_out"], 0);
  std::vector<std::string> nodes;
  for (const Json& node : graph["nodes"]) {
    nodes.push_back(node["distance"].dump() + ' ' + node["key"].get<std::string>());
  }
  EXPECT_THAT(nodes, ElementsAre("-2 vrf:1", "-1 vlan:11", "-1 host:21", "0 mpls:41", "1 mpls:40",
                                 "2 ecmp:30"));
  std::vector<std::string> edges;
  for (const Json& edge : graph["edges"]) {
    edges.push_back(edge["from"].get<std::string>() + ' ' + edge["type"].get<std::string>() + ' ' +
                    edge["to"].get<std::string>());
  }
  EXPECT_THAT(edges, ElementsAre("vlan:11 vrf vrf:1", "host:21 rides_on vlan:11",
                                 "ecmp:30 rides_on mpls:40", "mpls:40 rides_on mpls:41",
                                 "mpls:40 neighbor host:21", "mpls:41 rides_on vlan:11",
                                 "mpls:41 neighbor host:21"));
  EXPECT_THAT(Get("/api/graph?around=mpls:41&format=dot").body, HasSubstr("digraph"));
}

TEST_F(ManagerPagesTest, ANeighborOnAnotherVlanIsDrawnToo) {
  Site site = SiteOfAllKinds();
  site.mpls[1].neighbor = 20;
  site.mpls.push_back(TunnelEntry(42, 11, 0));
  Start(site);
  Settle();
  EXPECT_THAT(Get("/api/graph?around=mpls:41&depth=1&format=dot").body,
              AllOf(HasSubstr("\"host:20\" ["), HasSubstr("\"mpls:41\" -> \"host:20\"")));
  EXPECT_THAT(Get("/api/graph?around=host:20&depth=1&format=dot").body,
              HasSubstr("\"mpls:41\" -> \"host:20\""));
  EXPECT_THAT(Get("/api/graph?around=mpls:42&depth=1&format=dot").body, Not(HasSubstr("host")));
}

TEST_F(ManagerPagesTest, ALargeNeighbourhoodIsCutAndSaysSo) {
  Site site;
  site.vlans = {VlanEntry(1)};
  for (std::uint32_t id = 2; id <= 300; ++id) site.hosts.push_back(HostEntry(id, 1));
  Start(site);
  const Json graph = GetJson("/api/graph?around=vlan:1&format=json");
  EXPECT_EQ(graph["nodes"].size(), 200U);
  EXPECT_EQ(graph["left_out"], 100);
  EXPECT_THAT(Get("/api/graph?around=vlan:1&format=dot").body, HasSubstr("and 100 more"));
}

TEST_F(ManagerPagesTest, MetricsFollowTheirConventions) {
  Start(SiteOfAllKinds());
  hal_.Answer("install-vlan 11", kHalLabelOutOfRange);
  Settle();
  const HttpResponse metrics = Get("/metrics");
  EXPECT_EQ(metrics.type, "text/plain; version=0.0.4; charset=utf-8");
  for (const char* const line :
       {"\nzuskux_manager_objects{kind=\"vlan\",state=\"failed\"} 1\n",
        "\nzuskux_manager_objects{kind=\"vlan\",state=\"installed\"} 1\n",
        "\nzuskux_manager_connected 1\n", "\nzuskux_manager_settled 0\n",
        "\nzuskux_manager_in_sync 1\n", "\nzuskux_manager_reinstalls_total 1\n",
        "\nzuskux_manager_reinstall_running 0\n", "\nzuskux_manager_refused_total 1\n",
        "\nzuskux_manager_audits_total 0\n", "\nzuskux_manager_audits_with_differences_total 0\n",
        "\nzuskux_manager_results_total{code=\"0\",", "\nzuskux_manager_results_total{code=\"2\",",
        "\nzuskux_manager_queue_length{queue=\"due\"} 0\n",
        "\n# TYPE zuskux_manager_stage_duration_seconds histogram\n",
        "\nzuskux_manager_stage_duration_seconds_bucket{stage=\"hal\",le=\"+Inf\"} 0\n",
        "\nprocess_resident_memory_bytes ", "\nprocess_cpu_seconds_total "}) {
    EXPECT_THAT(metrics.body, HasSubstr(line));
  }
}

TEST_F(ManagerPagesTest, RatesBeginEmpty) {
  EXPECT_EQ(GetJson("/api/rates"), Json::parse(R"({"interval_ms":1000,"samples":[]})"));
}

Change ChangeOf(std::uint64_t seq, std::uint32_t id, Standing standing) {
  ObjectRow row;
  row.key = {HalKind::kVlan, id};
  row.standing = standing;
  return {seq, std::chrono::system_clock::time_point(std::chrono::seconds(seq)), row};
}

std::vector<std::uint64_t> Sequence(const ChangeHistory::Page& page) {
  std::vector<std::uint64_t> numbers;
  for (const Change* const change : page.changes) numbers.push_back(change->seq);
  return numbers;
}

TEST(ChangeHistoryTest, TheNewestComeFirst) {
  ChangeHistory history;
  history.Add(ChangeOf(1, 10, Standing::kInstalled));
  history.Add(ChangeOf(2, 11, Standing::kFailed));
  history.Add(ChangeOf(3, 10, Standing::kPending));
  ChangeHistory::Wanted wanted;
  wanted.limit = 10;
  EXPECT_THAT(Sequence(history.Find(wanted)), ElementsAre(3, 2, 1));
  wanted.before = 3;
  EXPECT_THAT(Sequence(history.Find(wanted)), ElementsAre(2, 1));
  wanted.limit = 1;
  EXPECT_THAT(Sequence(history.Find(wanted)), ElementsAre(2));
  EXPECT_TRUE(history.Find(wanted).more);
  wanted = {};
  wanted.limit = 2;
  wanted.key = ObjectKey{HalKind::kVlan, 10};
  EXPECT_THAT(Sequence(history.Find(wanted)), ElementsAre(3, 1));
  EXPECT_FALSE(history.Find(wanted).more);
  wanted.standings = {Standing::kFailed};
  EXPECT_THAT(Sequence(history.Find(wanted)), IsEmpty());
}

TEST(ChangeHistoryTest, ABurstDisplacesChangesButNoRefusals) {
  ChangeHistory history;
  history.Add(ChangeOf(1, 10, Standing::kFailed));
  std::uint64_t seq = 1;
  for (std::size_t i = 0; i < ChangeHistory::kMaxChanges; ++i) {
    history.Add(ChangeOf(++seq, 11, Standing::kInstalled));
  }
  ChangeHistory::Wanted wanted;
  wanted.limit = ChangeHistory::kMaxChanges + 1;
  EXPECT_EQ(history.Find(wanted).changes.size(), ChangeHistory::kMaxChanges);
  // It knows all changes after the one that it forgot.
  EXPECT_EQ(history.Find(wanted).since,
            std::chrono::system_clock::time_point(std::chrono::seconds(1)));
  wanted.standings = {Standing::kFailed};
  EXPECT_THAT(Sequence(history.Find(wanted)), ElementsAre(1));
}

TEST(ChangeHistoryTest, RefusalsAreBoundedToo) {
  ChangeHistory history;
  for (std::uint64_t seq = 1; seq <= ChangeHistory::kMaxRefusals + 1; ++seq) {
    history.Add(ChangeOf(seq, 10, Standing::kFailed));
  }
  ChangeHistory::Wanted wanted;
  wanted.limit = ChangeHistory::kMaxRefusals + 1;
  wanted.standings = {Standing::kFailed};
  EXPECT_EQ(history.Find(wanted).changes.size(), ChangeHistory::kMaxRefusals);
  EXPECT_EQ(history.Find(wanted).changes.back()->seq, 2U);
}

TEST(ChangeHistoryTest, ItSaysSinceWhenNothingIsMissing) {
  ChangeHistory history;
  const auto lost = std::chrono::system_clock::time_point::max();
  history.Lose(lost);
  EXPECT_EQ(history.Find({}).since, lost);
}

}  // namespace
}  // namespace reference
