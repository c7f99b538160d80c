// What a HAL server serves: its status, its metrics and its tables in pages.

#include "reference/server/hal_pages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "reference/text/hex.h"
#include "tests/hal/fake_data_plane.h"
#include "tests/hal/messages.h"
#include "tests/server/raw_client.h"
#include "tests/support/test_folder.h"
#include "wire.pb.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using Json = nlohmann::ordered_json;

constexpr int kInstallVlan = 5;
constexpr int kInstallHost = 8;
constexpr int kMaxRows = 1000;

/// A server and its pages, all on the test's thread.
class HalPagesTest : public ::testing::Test {
 protected:
  explicit HalPagesTest(DataPlane* data_plane = nullptr)
      : options_(Options(folder_.Path("hal.sock"), data_plane)),
        server_(&io_, options_),
        pages_(&server_, options_, {}) {}

  static HalServerOptions Options(const std::string& path, DataPlane* data_plane) {
    HalServerOptions options;
    options.path = path;
    options.table_capacity = 5000;
    options.max_clients = 1;
    options.data_plane = data_plane;
    return options;
  }

  // Becomes the writer, and sends all requests at once.
  void Send(const std::string& frames, std::uint64_t requests) {
    if (!client_) client_.emplace(options_.path).Send(HelloBytes());
    client_->Send(frames);
    RunUntil("requests", requests);
  }

  // Until the status has that value.
  void RunUntil(const char* name, std::uint64_t value) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (GetJson("/api/status")[name] != value) {
      ASSERT_LT(std::chrono::steady_clock::now(), end) << name;
      io_.run_one_for(std::chrono::seconds(1));
    }
  }

  void InstallVlans(std::uint32_t count) {
    std::string frames;
    for (std::uint32_t id = 1; id <= count; ++id) {
      frames += FrameBytes(kInstallVlan, id, Vlan(id, 1500).SerializeAsString());
    }
    Send(frames, count);
  }

  HttpResponse Get(const std::string& target) {
    try {
      HttpAnswer answer = pages_.Get(ParseTarget(target));
      if (auto* const response = std::get_if<HttpResponse>(&answer)) return *response;
      const auto query = std::get<std::shared_ptr<Query>>(answer);
      for (steps_ = 1; !query->Step();) ++steps_;
      return std::get<HttpResponse>(query->Finish());
    } catch (const HttpError& error) {
      return ErrorResponse(error.status(), error.what());
    }
  }

  Json GetJson(const std::string& target) {
    const HttpResponse response = Get(target);
    EXPECT_EQ(response.status, 200U) << response.body;
    EXPECT_EQ(response.type, "application/json");
    return Json::parse(response.body);
  }

  // The ids of every page, in the order of the answers.
  std::vector<std::uint32_t> Ids(const std::string& target) {
    std::vector<std::uint32_t> ids;
    std::string after;
    do {
      const Json page = GetJson(target + after);
      for (const Json& entry : page.at("entries")) ids.push_back(entry.at("id"));
      after = page.at("next").is_null() ? "" : "&after=" + page.at("next").get<std::string>();
    } while (!after.empty() && ids.size() < 100'000);
    return ids;
  }

  TestFolder folder_;
  HalServerOptions options_;
  boost::asio::io_context io_;
  HalServer server_;
  HalPages pages_;
  std::optional<RawClient> client_;
  int steps_ = 0;
};

class HalPagesDataPlaneTest : private FakeDataPlane, public HalPagesTest {
 protected:
  HalPagesDataPlaneTest() : HalPagesTest(static_cast<FakeDataPlane*>(this)) {}
};

TEST_F(HalPagesTest, TheStatusIsThatOfTheServer) {
  const auto before = std::chrono::system_clock::now();
  InstallVlans(3);
  Send(FrameBytes(kInstallHost, 4, HostOn(20, 99).SerializeAsString()), 4);
  const RawClient refused(options_.path);
  RunUntil("refused_connections", 1);
  const Json status = GetJson("/api/status");
  const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(before.time_since_epoch());
  EXPECT_THAT(status["program"].get<std::string>(), ::testing::StartsWith("zuskux-hal "));
  EXPECT_EQ(status["generation"], Hex(server_.generation()));
  EXPECT_EQ("0x" + status["instance"].get<std::string>(), status["generation"]);
  EXPECT_GE(status["now_ms"], now.count());
  EXPECT_LE(status["started_ms"], now.count());
  EXPECT_GE(status["started_ms"], now.count() - 60'000);
  EXPECT_EQ(status["requests"], 4);
  EXPECT_EQ(status["connections"], 1);
  EXPECT_EQ(status["writer"], true);
  EXPECT_EQ(status["kernel_writes"], nullptr);
  EXPECT_EQ(status["kernel_differences"], nullptr);
  EXPECT_THAT(status["tables"], SizeIs(kHalKinds));
  EXPECT_EQ(status["tables"]["vlan"]["count"], 3);
  EXPECT_EQ(status["tables"]["vlan"]["digest"], Hex(server_.tables().digest(HalKind::kVlan).sum));
  EXPECT_EQ(status["tables"]["host"]["count"], 0);
}

TEST_F(HalPagesTest, WithoutAManagerThereIsNoWriter) {
  EXPECT_EQ(GetJson("/api/status")["writer"], false);
  EXPECT_THAT(Get("/metrics").body, HasSubstr("\nzuskux_hal_manager_connected 0\n"));
}

TEST_F(HalPagesDataPlaneTest, TheStatusCountsWhatWasWrittenAndWhatDiffered) {
  InstallVlans(1);
  const Json status = GetJson("/api/status");
  EXPECT_EQ(status["kernel_writes"], server_.Status().data_plane_writes());
  EXPECT_EQ(status["kernel_differences"], 0);
  const std::string metrics = Get("/metrics").body;
  EXPECT_THAT(metrics, HasSubstr("\nzuskux_hal_kernel_writes_total " +
                                 std::to_string(server_.Status().data_plane_writes()) + "\n"));
  EXPECT_THAT(metrics, HasSubstr("\nzuskux_hal_audit_differences_total 0\n"));
}

TEST_F(HalPagesTest, TheMetricsAreThoseOfTheServer) {
  // An outcome that has not come yet is a 0, not a gap.
  EXPECT_THAT(Get("/metrics").body,
              HasSubstr(R"(zuskux_hal_results_total{code="0",meaning="success"} 0)"
                        "\n"));
  InstallVlans(3);
  Send(FrameBytes(kInstallHost, 4, HostOn(20, 99).SerializeAsString()), 4);
  const RawClient refused(options_.path);
  RunUntil("refused_connections", 1);
  const HttpResponse response = Get("/metrics");
  EXPECT_EQ(response.type, "text/plain; version=0.0.4; charset=utf-8");
  for (const char* const line : {
           R"(zuskux_hal_entries{kind="vlan"} 3)",
           R"(zuskux_hal_entries{kind="host"} 0)",
           "zuskux_hal_table_capacity 5000",
           "zuskux_hal_manager_connected 1",
           "zuskux_hal_requests_total 4",
           R"(zuskux_hal_results_total{code="0",meaning="success"} 3)",
           "zuskux_hal_connections_total 1",
           "zuskux_hal_refused_connections_total 1",
       }) {
    EXPECT_THAT(response.body, HasSubstr(std::string("\n") + line + "\n"));
  }
  EXPECT_THAT(response.body, HasSubstr("\nprocess_resident_memory_bytes "));
  EXPECT_THAT(response.body, HasSubstr("\n# TYPE zuskux_hal_requests_total counter\n"));
  EXPECT_THAT(response.body, HasSubstr("\n# TYPE zuskux_hal_manager_connected gauge\n"));
  EXPECT_THAT(response.body, Not(HasSubstr("zuskux_hal_kernel")));
  EXPECT_THAT(response.body, Not(HasSubstr("zuskux_hal_audit")));
}

TEST_F(HalPagesTest, AnEntryHasItsKindItsIdAndItsFields) {
  InstallVlans(1);
  const Json page = GetJson("/api/tables");
  EXPECT_EQ(page["next"], nullptr);
  ASSERT_THAT(page["entries"], SizeIs(1));
  const Json& entry = page["entries"][0];
  EXPECT_EQ(entry["kind"], "vlan");
  EXPECT_EQ(entry["id"], 1);
  EXPECT_EQ(entry["fields"]["mtu"], 1500);
}

TEST_F(HalPagesTest, PagesJoinWithoutGapsOrRepeats) {
  InstallVlans(250);
  Send(FrameBytes(kInstallHost, 251, HostOn(1000, 7).SerializeAsString()), 251);
  for (const char* const target : {"/api/tables?limit=1", "/api/tables?limit=50",
                                   "/api/tables?limit=99", "/api/tables?limit=251"}) {
    const std::vector<std::uint32_t> ids = Ids(target);
    EXPECT_THAT(ids, SizeIs(251)) << target;
    EXPECT_EQ(std::set(ids.begin(), ids.end()).size(), 251U) << target;
  }
  // 100 rows unless the client asks for another number.
  EXPECT_THAT(GetJson("/api/tables")["entries"], SizeIs(100));
  EXPECT_THAT(GetJson("/api/tables?limit=1")["entries"], SizeIs(1));
}

TEST_F(HalPagesTest, AKindHasOnlyItsOwnEntries) {
  InstallVlans(4);
  Send(FrameBytes(kInstallHost, 5, HostOn(1000, 3).SerializeAsString()), 5);
  EXPECT_THAT(Ids("/api/tables?kind=vlan"), ::testing::UnorderedElementsAre(1, 2, 3, 4));
  EXPECT_THAT(Ids("/api/tables?kind=vlan&limit=2"), ::testing::UnorderedElementsAre(1, 2, 3, 4));
  EXPECT_THAT(Ids("/api/tables?kind=host&limit=1"), ElementsAre(1000));
  EXPECT_THAT(Ids("/api/tables?kind=ecmp"), IsEmpty());
}

TEST_F(HalPagesTest, ALongPageIsReadInShortSteps) {
  InstallVlans(2 * kMaxRows);
  EXPECT_THAT(GetJson("/api/tables?limit=1000")["entries"], SizeIs(kMaxRows));
  EXPECT_EQ(steps_, 4);  // of 256 entries
  EXPECT_THAT(GetJson("/api/tables?limit=256")["entries"], SizeIs(256));
  EXPECT_EQ(steps_, 2);
  EXPECT_THAT(GetJson("/api/tables?limit=255")["entries"], SizeIs(255));
  EXPECT_EQ(steps_, 1);
}

struct WrongTarget {
  const char* name;
  const char* target;
  unsigned status;
  const char* text;
};

class WrongTargetTest : public HalPagesTest, public ::testing::WithParamInterface<WrongTarget> {};

TEST_P(WrongTargetTest, IsRefusedWithTheReason) {
  InstallVlans(3);
  const HttpResponse response = Get(GetParam().target);
  EXPECT_EQ(response.status, GetParam().status);
  EXPECT_THAT(response.body, HasSubstr(GetParam().text));
}

constexpr const char* kNextOnly = "the parameter after must be the next of an earlier page";
constexpr WrongTarget kWrongTargets[] = {
    {"Kind", "/api/tables?kind=x", 400, R"(there is no kind \"x\")"},
    {"NoRows", "/api/tables?limit=0", 400, "limit"},
    {"TooManyRows", "/api/tables?limit=1001", 400, "limit"},
    {"NoPlace", "/api/tables?after=x", 400, kNextOnly},
    {"PlaceOfNoKind", "/api/tables?after=9.1", 400, kNextOnly},
    {"HalfAPlace", "/api/tables?after=1", 400, kNextOnly},
    {"HalfAPlaceWithADot", "/api/tables?after=1.", 400, kNextOnly},
    {"NoNumber", "/api/tables?after=1.x", 400, kNextOnly},
    {"MoreThanAPlace", "/api/tables?after=1.1.1", 400, kNextOnly},
    {"Comma", "/api/tables?after=1,1", 400, kNextOnly},
    {"ParameterOfTables", "/api/tables?x=1", 400, "x"},
    {"ParameterOfStatus", "/api/status?x=1", 400, "x"},
    {"ParameterOfMetrics", "/metrics?x=1", 400, "x"},
    {"ParameterOfTheList", "/?x=1", 400, "x"},
    {"BelowTables", "/api/tables/vlan", 404, "/ lists the paths"},
    {"AboveTables", "/api", 404, "/ lists the paths"},
    {"Elsewhere", "/x", 404, "/ lists the paths"},
};
INSTANTIATE_TEST_SUITE_P(Cases, WrongTargetTest, ::testing::ValuesIn(kWrongTargets),
                         [](const auto& wrong) { return wrong.param.name; });

TEST_F(HalPagesTest, ThePathsAreListed) {
  EXPECT_EQ(GetJson("/"), Json::parse(R"({"paths":["/metrics","/api/status","/api/tables"]})"));
}

TEST_F(HalPagesTest, ThereAreNoEvents) { EXPECT_THAT(pages_.MissedText(3), IsEmpty()); }

}  // namespace
}  // namespace reference
