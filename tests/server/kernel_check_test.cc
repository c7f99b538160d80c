/// The comparison of a server's tables with the kernel of a network namespace.

#include "reference/server/kernel_check.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <string>

#include "reference/server/linux_data_plane.h"
#include "tests/data_plane/linux/network_namespace.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

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
    return CheckKernel(contents_, interfaces_, "", &out_);
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
