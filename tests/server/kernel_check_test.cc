/// The comparison of a server's tables with the kernel of a network namespace.

#include "reference/server/kernel_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "reference/server/linux_data_plane.h"
#include "reference/server/tables_command.h"
#include "tests/data_plane/linux/network_namespace.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

encapsulation::VlanMessage VlanOn(std::uint32_t id, std::uint32_t lim) {
  encapsulation::VlanMessage vlan;
  vlan.set_vlan_destination_id(id);
  std::string bytes(sizeof lim, '\0');
  std::memcpy(bytes.data(), &lim, sizeof lim);
  vlan.set_lim_id(bytes);
  return vlan;
}

class KernelCheckTest : public NetworkNamespaceTest {
 protected:
  void SetUp() override {
    NetworkNamespaceTest::SetUp();
    if (IsSkipped()) return;
    data_plane_ = MakeLinuxDataPlane(interfaces_, "", [](LogLevel, const std::string&) {});
    auto host = HostOn(20, 10);
    host.set_dest_mac("\x02\x02\x02\x02\x02\x02");
    Store(HalKind::kVrf, 0, Vrf(0));
    Store(HalKind::kVlan, 10, VlanOn(10, 1));
    Store(HalKind::kHost, 20, host);
    Store(HalKind::kEcmp, 30, Ecmp(30, {20}));
    ASSERT_EQ(data_plane_->Commit(), std::nullopt);
  }

  void Store(HalKind kind, std::uint32_t id, const google::protobuf::Message& message) {
    EXPECT_EQ(data_plane_->Store(kind, id, message), kHalSuccess);
    contents_.entries[{kind, id}] = message.SerializeAsString();
  }

  bool Check() {
    out_.str("");
    return PrintCheck(CompareWithKernel(contents_, interfaces_, ""), &out_);
  }

  const InterfaceNames interfaces_ = {{1, "eth2"}};
  std::unique_ptr<DataPlane> data_plane_;
  ServerContents contents_;
  std::ostringstream out_;
};

TEST_F(KernelCheckTest, ShowsTheKernelObjectsOfEachEntry) {
  EXPECT_TRUE(Check());
  EXPECT_EQ(out_.str(),
            "vrf 0:\n"
            "vlan 10: next hop 10 as wanted, zd10 as wanted\n"
            "host 20: next hop 20 as wanted, zd10 as wanted, neighbour fe80::14 on zd10 as wanted\n"
            "ecmp 30: next hop 30 as wanted\n"
            "5 objects, 0 wrong, 0 entries that cannot be in the kernel\n");
}

TEST_F(KernelCheckTest, TheTablesShowIt) {
  Run("ip neigh del fe80::14 dev zd10");
  contents_.entries[{HalKind::kVlan, 11}] = VlanOn(11, 9).SerializeAsString();
  const KernelComparison kernel = CompareWithKernel(contents_, interfaces_, "");
  PrintAsText(contents_, &kernel, out_);
  EXPECT_THAT(out_.str(),
              MatchesRegex("generation [^\n]*\n"
                           "\n"
                           "vrf 0: [^\n]*\n"
                           "  in the kernel: nothing\n"
                           "vlan 10: [^\n]*\n"
                           "  in the kernel: next hop 10 as wanted, zd10 as wanted\n"
                           "vlan 11: [^\n]*\n"
                           "  in the kernel: no such interface\n"
                           "host 20: [^\n]*\n"
                           "  in the kernel: next hop 20 as wanted, zd10 as wanted, neighbour "
                           "fe80::14 on zd10 missing\n"
                           "ecmp 30: [^\n]*\n"
                           "  in the kernel: next hop 30 as wanted\n"));

  std::ostringstream json;
  PrintAsJson(contents_, &kernel, json);
  const auto tables = nlohmann::json::parse(json.str()).at("tables");
  const auto entry = [&tables](const char* kind, std::size_t place) {
    nlohmann::json shown = tables.at(kind).at("entries").at(place);
    shown.erase("fields");
    return shown;
  };
  using Json = nlohmann::json;
  EXPECT_EQ(entry("vrf", 0), Json::parse(R"({"id": 0, "kernel_objects": {}})"));
  EXPECT_EQ(entry("vlan", 1), Json::parse(R"({"id": 11, "kernel_objects": {},
                                              "kernel_refusal": "no such interface"})"));
  EXPECT_EQ(entry("host", 0), Json::parse(R"({"id": 20, "kernel_objects":
      {"next hop 20": "as wanted", "zd10": "as wanted", "neighbour fe80::14 on zd10": "missing"}})"));
}

TEST_F(KernelCheckTest, TheTablesAloneDoNotMentionTheKernel) {
  PrintAsText(contents_, nullptr, out_);
  PrintAsJson(contents_, nullptr, out_);
  EXPECT_THAT(out_.str(),
              AllOf(HasSubstr("host 20: "), HasSubstr("\"id\": 20"), Not(HasSubstr("kernel"))));
}

TEST_F(KernelCheckTest, NamesWhatAnotherProgramChanged) {
  Run("ip neigh del fe80::14 dev zd10");
  Run("ip link set zd10 mtu 1400");
  Run("ip -6 nexthop add id 40 blackhole protocol 171");
  EXPECT_FALSE(Check());
  EXPECT_EQ(out_.str(),
            "vrf 0:\n"
            "vlan 10: next hop 10 as wanted, zd10 different\n"
            "host 20: next hop 20 as wanted, zd10 different, neighbour fe80::14 on zd10 missing\n"
            "ecmp 30: next hop 30 as wanted\n"
            "WRONG: neighbour fe80::14 on zd10 missing\n"
            "WRONG: next hop 40 not wanted\n"
            "WRONG: zd10 different\n"
            "6 objects, 3 wrong, 0 entries that cannot be in the kernel\n");
}

TEST_F(KernelCheckTest, NamesTheMissingDeviceOfAVrf) {
  contents_.entries[{HalKind::kVrf, 7}] = Vrf(7).SerializeAsString();
  EXPECT_FALSE(Check());
  EXPECT_NE(out_.str().find("vrf 7: zv7 missing\n"), std::string::npos) << out_.str();
}

TEST_F(KernelCheckTest, NamesEntriesThatCannotBeInTheKernel) {
  contents_.entries[{HalKind::kVrf, 7}] = "\xFF";
  contents_.entries[{HalKind::kVlan, 11}] = VlanOn(11, 9).SerializeAsString();
  EXPECT_FALSE(Check());
  EXPECT_NE(out_.str().find("vlan 11: no such interface\n"), std::string::npos);
  EXPECT_NE(out_.str().find("vrf 7: bad request\n"), std::string::npos);
  EXPECT_NE(out_.str().find("5 objects, 0 wrong, 2 entries"), std::string::npos);
}

}  // namespace
}  // namespace reference
