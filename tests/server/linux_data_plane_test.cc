/// The server's data planes: the kernel of a network namespace, and printed commands.

#include "reference/server/linux_data_plane.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/data_plane/linux/network_namespace.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

encapsulation::VlanMessage VlanOn(std::uint32_t id, std::uint32_t lim) {
  encapsulation::VlanMessage vlan = Vlan(id, 1400);
  std::string bytes(sizeof lim, '\0');
  std::memcpy(bytes.data(), &lim, sizeof lim);
  vlan.set_lim_id(bytes);
  return vlan;
}

encapsulation::HostMessage Neighbour(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac("\x02\x02\x02\x02\x02\x02");
  return host;
}

class LinuxDataPlaneTest : public NetworkNamespaceTest {
 protected:
  std::unique_ptr<DataPlane> Make() {
    return MakeLinuxDataPlane(
        {{1, "eth2"}, {2, "eth9"}}, "",
        [this](LogLevel, const std::string& line) { lines_.push_back(line); });
  }

  std::vector<std::string> lines_;
};

const char* const kNexthops =
    "id 10 dev zd10 scope link proto 171 \n"
    "id 20 via fe80::14 dev zd10 scope link proto 171 onlink \n";

TEST_F(LinuxDataPlaneTest, ProgramsTheKernel) {
  const auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kHost, 20, Neighbour(20, 10)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 11, VlanOn(11, 2)), kHalNoInterface);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  EXPECT_EQ(Output("ip nexthop"), kNexthops);
  data_plane->Remove(HalKind::kHost, 20);
  data_plane->Remove(HalKind::kVlan, 10);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  EXPECT_EQ(Output("ip nexthop; ip link show group 171"), "");
  EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(LinuxDataPlaneTest, NamesARefusal) {
  const auto data_plane = Make();
  Run("ip nexthop add id 10 dev eth2");
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_NE(data_plane->Commit(), std::nullopt);
  data_plane->Remove(HalKind::kVlan, 10);
  data_plane->CommitOrLeave();
  EXPECT_THAT(lines_, IsEmpty());
  EXPECT_THAT(Output("ip nexthop; ip link show group 171"),
              MatchesRegex("id 10 dev eth2 scope [a-z]+ \n"));
}

TEST_F(LinuxDataPlaneTest, LeavesItsObjectsWhichTheNextOneAdopts) {
  auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kHost, 20, Neighbour(20, 10)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kHost, 21, Neighbour(21, 10)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  data_plane.reset();

  data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kHost, 20, Neighbour(20, 10)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  EXPECT_EQ(data_plane->writes(), 0);
  EXPECT_NE(Output("ip nexthop"), kNexthops);
  EXPECT_TRUE(data_plane->RemoveLeftovers(100));
  EXPECT_EQ(data_plane->writes(), 2);
  EXPECT_EQ(Output("ip nexthop"), kNexthops);
  EXPECT_THAT(lines_, ElementsAre("found 6 objects of an earlier server in the kernel; they stay "
                                  "until the next reinstall ends",
                                  "removed 2 objects of an earlier server from the kernel"));
}

// The kernel reports an MTU for each device, also for one without a wanted MTU.
TEST_F(LinuxDataPlaneTest, AdoptsADeviceWithTheMtuOfItsParent) {
  encapsulation::VlanMessage vlan = VlanOn(10, 1);
  vlan.clear_mtu();
  auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, vlan), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  data_plane.reset();
  data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, vlan), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  EXPECT_EQ(data_plane->writes(), 0);
}

TEST_F(LinuxDataPlaneTest, MakesADeviceThatIsDownAnew) {
  auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  data_plane.reset();
  Run("ip link set zd10 down");
  data_plane = Make();
  EXPECT_EQ(Output("ip link show group 171"), "");
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  EXPECT_EQ(Output("ip nexthop"), "id 10 dev zd10 scope link proto 171 \n");
}

TEST_F(LinuxDataPlaneTest, IsTheOnlyOneInANamespace) {
  const auto data_plane = Make();
  try {
    Make();
    FAIL() << "two at a time";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(),
                 "another zuskux-hal programs this network namespace; end it, or use --netns");
  }
}

TEST(PrintingDataPlaneTest, PrintsCommandsForTheDevicesOfTheNamespace) {
  std::ostringstream out;
  const auto data_plane = MakePrintingDataPlane({{1, "lo"}, {2, "eth9"}}, &out);
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 11, VlanOn(11, 2)), kHalNoInterface);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  EXPECT_EQ(out.str(),
            "ip link add link lo name zd10 address 02:7a:00:00:00:0a group 171 mtu 1400 "
            "type macvlan mode private\n"
            "sysctl -qw 'net/ipv6/conf/zd10/disable_ipv6=0'\n"
            "ip link set zd10 addrgenmode none\n"
            "ip link set zd10 up\n"
            "ip -6 nexthop replace id 10 dev zd10 protocol 171\n");
}

TEST(PrintingDataPlaneTest, EndsWhenNothingCanBeWritten) {
  std::ostringstream out;
  const auto data_plane = MakePrintingDataPlane({{1, "lo"}}, &out);
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  out.setstate(std::ios::badbit);
  EXPECT_THROW(data_plane->Commit(), std::runtime_error);
}

}  // namespace
}  // namespace reference
