/// The server's data planes: the kernel of a network namespace, and printed commands.

#include "reference/server/linux_data_plane.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cctype>
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
    "id 10 dev zd10 scope 253 proto 171 \n"
    "id 20 via fe80::14 dev zd10 scope 253 proto 171 onlink \n";

TEST_F(LinuxDataPlaneTest, ProgramsTheKernel) {
  const auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kHost, 20, Neighbour(20, 10)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 11, VlanOn(11, 2)), kHalNoInterface);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  EXPECT_EQ(Output("ip -N nexthop"), kNexthops);
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
  EXPECT_NE(Output("ip -N nexthop"), kNexthops);
  EXPECT_TRUE(data_plane->RemoveLeftovers(100));
  EXPECT_EQ(data_plane->writes(), 2);
  EXPECT_EQ(Output("ip -N nexthop"), kNexthops);
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

TEST_F(LinuxDataPlaneTest, RecreatesADeviceThatIsDown) {
  auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  data_plane.reset();
  Run("ip link set zd10 down");
  data_plane = Make();
  EXPECT_EQ(Output("ip link show group 171"), "");
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  EXPECT_EQ(Output("ip -N nexthop"), "id 10 dev zd10 scope 253 proto 171 \n");
}

// Waits for what the kernel does later: it removes the next hops, and notices that the link is
// back.
constexpr char kLinkDownAndUp[] =
    "ip link set eth2 down;"
    "for i in $(seq 1000); do ip nexthop show dev zd10 | grep -q . || break; sleep 0.01; done;"
    "ip link set eth2 up;"
    "for i in $(seq 1000); do ip -br link show zd10 | grep -q ' UP ' && break; sleep 0.01; done";

class DriftTest : public LinuxDataPlaneTest, public testing::WithParamInterface<const char*> {};

TEST_P(DriftTest, IsNoticedAndRepaired) {
  const auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kHost, 20, Neighbour(20, 10)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kEcmp, 30, Ecmp(30, {20})), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  data_plane->TakeChanges();
  const std::string kState =
      "ip nexthop; ip neigh show nud permanent; ip link show group 171 | grep -o 'zd.*mtu.*qdisc'";
  const std::string before = Output(kState);

  Run(GetParam());
  pollfd changes{data_plane->change_fd(), POLLIN, 0};
  EXPECT_EQ(poll(&changes, 1, 10'000), 1);
  EXPECT_TRUE(data_plane->TakeChanges());
  const Repair repair = data_plane->RepairChanges();
  EXPECT_NE(repair.differences, 0);
  EXPECT_THAT(repair.refusals, IsEmpty());
  EXPECT_EQ(Output(kState), before);
  EXPECT_EQ(data_plane->MakeAsWanted().differences, 0);
  EXPECT_THAT(lines_, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Each, DriftTest,
                         testing::Values("ip nexthop del id 20", "ip nexthop del id 30",
                                         "ip nexthop flush proto 171", "ip link del zd10",
                                         "ip link set zd10 mtu 1300", "ip link set zd10 down",
                                         "ip link set zd10 alias changed",
                                         "ip neigh del fe80::14 dev zd10", kLinkDownAndUp),
                         [](const auto& drift) {
                           std::string name;
                           for (const char c : std::string(drift.param)) {
                             if (std::isalnum(static_cast<unsigned char>(c)) != 0) name += c;
                           }
                           return name.substr(0, 40);
                         });

TEST_F(LinuxDataPlaneTest, RepairsWhenTheLinkIsBack) {
  const auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  Run("ip link set eth2 down");
  EXPECT_TRUE(data_plane->TakeChanges());
  // The kernel may refuse next hops without a carrier.
  data_plane->MakeAsWanted();
  Run("ip link set eth2 up");
  EXPECT_TRUE(data_plane->TakeChanges());
  EXPECT_THAT(data_plane->MakeAsWanted().refusals, IsEmpty());
  EXPECT_EQ(Output("ip -N nexthop"), "id 10 dev zd10 scope 253 proto 171 \n");
}

// The kernel removes the routes with the next hop. They belong to other programs.
TEST_F(LinuxDataPlaneTest, SaysHowManyRoutesTheKernelHasRemoved) {
  const auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kHost, 20, Neighbour(20, 10)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  Run("ip route add 203.0.113.0/25 nhid 20; ip route add 203.0.113.128/25 nhid 20 table 7;"
      "ip route add 192.0.2.0/25 nhid 10; ip -6 route add 2001:db8::/48 nhid 20");
  EXPECT_EQ(data_plane->MakeAsWanted().differences, 0);
  Run("ip nexthop del id 20");
  EXPECT_EQ(data_plane->MakeAsWanted().text,
            "next hop 20 missing; 3 routes that used our next hops are gone; the programs that "
            "added them must add them again");
  data_plane->TakeChanges();
  Run("ip nexthop del id 10");
  EXPECT_TRUE(data_plane->TakeChanges());
  EXPECT_EQ(data_plane->RepairChanges().text,
            "next hop 10 missing; 1 route that used our next hops is gone; the program that added "
            "it must add it again");
  Run("ip nexthop del id 20");
  EXPECT_EQ(data_plane->MakeAsWanted().text, "next hop 20 missing");
}

TEST_F(LinuxDataPlaneTest, RepairsEvenIfNotificationsAreLost) {
  const auto data_plane = Make();
  EXPECT_EQ(data_plane->Store(HalKind::kVlan, 10, VlanOn(10, 1)), kHalSuccess);
  EXPECT_EQ(data_plane->Store(HalKind::kHost, 20, Neighbour(20, 10)), kHalSuccess);
  EXPECT_EQ(data_plane->Commit(), std::nullopt);
  data_plane->TakeChanges();
  const int small = 1;
  ASSERT_EQ(setsockopt(data_plane->change_fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  // Notifications about another program's next hops fill the buffer, so the one about ours is lost.
  Run("for id in $(seq 101 140); do echo nexthop add id $id blackhole; done | ip -batch -");
  Run("ip nexthop del id 20");
  EXPECT_TRUE(data_plane->TakeChanges());
  EXPECT_EQ(data_plane->RepairChanges().differences, 1);
  EXPECT_EQ(Output("ip -N nexthop show protocol 171"), kNexthops);
}

TEST_F(LinuxDataPlaneTest, IsTheOnlyOneInANamespace) {
  const auto data_plane = Make();
  try {
    Make();
    FAIL() << "a second one has started";
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
