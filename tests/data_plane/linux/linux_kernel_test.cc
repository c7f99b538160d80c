#include "reference/data_plane/linux/linux_kernel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "tests/data_plane/linux/faulty_socket.h"
#include "tests/data_plane/linux/network_namespace.h"

namespace reference {

bool operator==(const KernelRefusal& a, const KernelRefusal& b) {
  return a.change == b.change && a.error == b.error && a.text == b.text;
}

std::ostream& operator<<(std::ostream& out, const KernelRefusal& refusal) {
  return out << refusal.change << ": " << refusal.error << ' ' << refusal.text;
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr MacAddress kMac = {0x02, 0, 0, 0, 0, 0x0A};
constexpr MacAddress kHostMac = {0x02, 0, 0, 0, 0, 0x65};

MacvlanDevice Macvlan() { return {"eth2", kMac, 1400, "", true, "10 20"}; }

DeviceNexthop Via(std::uint32_t id, std::vector<std::uint32_t> labels = {}) {
  return {"zd10", NeighbourAddress(id), std::move(labels)};
}

PutNeighbour Host(std::uint32_t id) { return {{"zd10", NeighbourAddress(id)}, kHostMac}; }

// A VLAN destination, two hosts on it, a group of both, and the blackhole.
std::vector<KernelChange> Everything() {
  return {PutDevice{"zd10", Macvlan(), {}},
          PutNexthop{10, DeviceNexthop{"zd10", {}, {}}},
          Host(101),
          Host(102),
          PutNexthop{101, Via(101)},
          PutNexthop{102, Via(102)},
          PutNexthop{301, NexthopGroup{{{101, 1}, {102, 256}}}},
          PutNexthop{103, BlackholeNexthop{}},
          PutNexthop{302, NexthopGroup{{{103, 1}}}}};
}

KernelObjects After(const std::vector<KernelChange>& changes) {
  KernelObjects objects;
  for (const KernelChange& change : changes) Apply(change, &objects);
  return objects;
}

class LinuxKernelTest : public NetworkNamespaceTest {
 protected:
  void SetUp() override {
    NetworkNamespaceTest::SetUp();
    if (IsSkipped()) return;
    kernel_ = std::make_unique<LinuxKernel>("");
    ASSERT_EQ(kernel_->Read(), KernelObjects{});
  }

  // Applies changes that must succeed.
  void Do(const std::vector<KernelChange>& changes) {
    EXPECT_THAT(kernel_->Apply(changes), IsEmpty());
  }

  bool HasNotification() const {
    pollfd waiting = {kernel_->notification_fd(), POLLIN, 0};
    return poll(&waiting, 1, 0) == 1;
  }

  std::unique_ptr<LinuxKernel> kernel_;
};

TEST_F(LinuxKernelTest, ReadsBackWhatItWrote) {
  Do(Everything());
  EXPECT_EQ(kernel_->Read(), After(Everything()));
}

TEST_F(LinuxKernelTest, IpShowsADevice) {
  Do(Everything());
  const auto link = Ip("link show dev zd10").at(0);
  EXPECT_EQ(link.at("link"), "eth2");
  EXPECT_EQ(link.at("address"), "02:00:00:00:00:0a");
  EXPECT_EQ(link.at("mtu"), 1400);
  EXPECT_EQ(link.at("group"), "171");
  EXPECT_EQ(link.at("ifalias"), "10 20");
  EXPECT_EQ(link.at("linkinfo").at("info_kind"), "macvlan");
  EXPECT_EQ(link.at("linkinfo").at("info_data").at("mode"), "private");
  EXPECT_EQ(link.at("inet6_addr_gen_mode"), "none");
  EXPECT_THAT(link.at("flags"), testing::Contains("UP"));
  EXPECT_EQ(Output("cat /proc/sys/net/ipv4/conf/zd10/forwarding"), "1\n");
  EXPECT_EQ(Output("cat /proc/sys/net/ipv6/conf/zd10/forwarding"), "1\n");
  if (Works("test -e /proc/sys/net/ipv6/conf/zd10/force_forwarding")) {
    EXPECT_EQ(Output("cat /proc/sys/net/ipv6/conf/zd10/force_forwarding"), "1\n");
  }
  // Without an address, the device cannot send packets of its own.
  EXPECT_EQ(Output("ip -6 -o addr show dev zd10"), "");
}

TEST_F(LinuxKernelTest, IpShowsNeighboursAndNextHops) {
  Do(Everything());
  const auto neighbours = Ip("-6 neigh show dev zd10");
  ASSERT_EQ(neighbours.size(), 2U);
  EXPECT_EQ(neighbours.at(0).at("lladdr"), "02:00:00:00:00:65");
  EXPECT_THAT(neighbours.at(0).at("state"), ElementsAre("PERMANENT"));
  EXPECT_EQ(neighbours.at(0).at("protocol"), "171");
  EXPECT_EQ(Ip("nexthop show id 10").at(0).at("dev"), "zd10");
  const auto host = Ip("nexthop show id 101").at(0);
  EXPECT_EQ(host.at("gateway"), "fe80::65");
  EXPECT_EQ(host.at("dev"), "zd10");
  EXPECT_EQ(host.at("protocol"), "171");
  EXPECT_THAT(host.at("flags"), ElementsAre("onlink"));
  EXPECT_THAT(Output("ip -N nexthop show id 103"), HasSubstr("blackhole proto 171"));
  EXPECT_THAT(Output("ip nexthop show id 301"), HasSubstr("group 101/102,256"));
}

TEST_F(LinuxKernelTest, RoutesOfBothFamiliesUseANexthop) {
  Do(Everything());
  for (const std::string id : {"10", "101", "301", "302", "103"}) {
    EXPECT_TRUE(Works("ip route replace 203.0.113.0/24 nhid " + id)) << id;
    EXPECT_TRUE(Works("ip -6 route replace 2001:db8::/64 nhid " + id)) << id;
  }
}

// A feature that not every kernel has.
struct Feature {
  std::string name;
  // Succeeds if the kernel has the feature.
  std::string probe;
  std::vector<KernelChange> changes;
  // A command and a part of its output.
  std::string show;
  std::string shown;
};

std::ostream& operator<<(std::ostream& out, const Feature& feature) { return out << feature.name; }

class LinuxKernelFeatureTest : public LinuxKernelTest,
                               public testing::WithParamInterface<Feature> {};

TEST_P(LinuxKernelFeatureTest, ReadsBackWhatItWrote) {
  if (!Works(GetParam().probe)) GTEST_SKIP() << "this kernel cannot do: " << GetParam().probe;
  Do(GetParam().changes);
  EXPECT_EQ(kernel_->Read(), After(GetParam().changes));
  EXPECT_THAT(Output(GetParam().show), HasSubstr(GetParam().shown));
}

MacvlanDevice InVrf() {
  MacvlanDevice device = Macvlan();
  device.master = "zv7";
  return device;
}

std::vector<std::uint32_t> MostLabels() {
  std::vector<std::uint32_t> labels;
  for (std::uint32_t label = 16; label < 16 + kMaxLabels; ++label) labels.push_back(label);
  return labels;
}

INSTANTIATE_TEST_SUITE_P(
    Each, LinuxKernelFeatureTest,
    testing::Values(
        Feature{"Vrf",
                "ip link add probe type vrf table 1 && ip link del probe",
                {PutDevice{"zv7", VrfDevice{7}, {}}, PutDevice{"zd10", InVrf(), {}},
                 PutNexthop{10, DeviceNexthop{"zd10", {}, {}}}},
                "ip -d link show master zv7; ip -d link show zv7; ip nexthop show vrf zv7",
                "vrf table 7"},
        Feature{
            "Dummy",
            "ip link add probe type dummy && ip link del probe",
            {PutDevice{"zcpu", DummyDevice{}, {}}, PutNexthop{101, DeviceNexthop{"zcpu", {}, {}}}},
            "ip nexthop show id 101",
            "dev zcpu"},
        Feature{"TaggedDevice",
                "ip link add link eth2 name probe type vlan id 9 && ip link del probe",
                {PutDevice{"eth2.20", TaggedDevice{"eth2", 20}, {}},
                 PutDevice{"zd10", MacvlanDevice{"eth2.20", kMac, 1500, "", false, ""}, {}}},
                "ip -d link show eth2.20",
                "802.1Q id 20"},
        Feature{"Mpls",
                "ip nexthop add id 1 encap mpls 16 via inet6 fe80::1 dev eth2 &&"
                " ip nexthop del id 1",
                {PutDevice{"zd10", Macvlan(), {}}, PutNexthop{101, Via(101, {100, 1048575})},
                 PutNexthop{102, Via(102, MostLabels())}},
                "ip nexthop show id 101",
                "encap mpls  100/1048575 via fe80::65"}),
    [](const auto& test) { return test.param.name; });

TEST_F(LinuxKernelTest, ADeviceWithIpv6OffGetsIpv6) {
  Run("echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6");
  Do(Everything());
  EXPECT_EQ(kernel_->Read(), After(Everything()));
  EXPECT_EQ(Output("cat /proc/sys/net/ipv6/conf/zd10/disable_ipv6"), "0\n");
  EXPECT_EQ(Output("ip -6 -o addr show dev zd10"), "");
}

TEST_F(LinuxKernelTest, ForwardingIsOffUnlessWanted) {
  Run("echo 1 >/proc/sys/net/ipv4/ip_forward");
  Run("echo 1 >/proc/sys/net/ipv6/conf/all/forwarding");
  MacvlanDevice device = Macvlan();
  device.forwarding = false;
  Do({PutDevice{"zd10", device, {}}});
  EXPECT_EQ(Output("cat /proc/sys/net/ipv4/conf/zd10/forwarding"), "0\n");
  EXPECT_EQ(Output("cat /proc/sys/net/ipv6/conf/zd10/forwarding"), "0\n");
}

TEST_F(LinuxKernelTest, ChangesADeviceInPlace) {
  Do(Everything());
  Run("ip route add 203.0.113.0/24 nhid 301");
  const auto index = Ip("link show dev zd10").at(0).at("ifindex");
  const MacvlanDevice before = Macvlan();
  MacvlanDevice after = before;
  after.mtu = 1300;
  after.alias = "";
  after.forwarding = false;
  Do({PutDevice{"zd10", after, before}});
  KernelObjects expected = After(Everything());
  expected.devices["zd10"] = after;
  // The neighbours are still there; setting the address would have flushed them.
  EXPECT_EQ(kernel_->Read(), expected);

  after.address[5] = 0x0B;
  Do({PutDevice{"zd10", after, before}, Host(101), Host(102)});
  expected.devices["zd10"] = after;
  EXPECT_EQ(kernel_->Read(), expected);
  EXPECT_EQ(Ip("link show dev zd10").at(0).at("ifindex"), index);
  EXPECT_THAT(Output("ip route show 203.0.113.0/24"), HasSubstr("nhid 301"));
}

TEST_F(LinuxKernelTest, ReplacesANexthopUnderItsGroupAndRoute) {
  Do(Everything());
  Run("ip route add 203.0.113.0/24 nhid 301");
  Do({PutNexthop{101, DeviceNexthop{"zd10", {}, {}}}, PutNexthop{301, NexthopGroup{{{101, 3}}}},
      PutNexthop{301, NexthopGroup{{{101, 2}, {102, 2}}}}});
  const KernelObjects objects = kernel_->Read();
  EXPECT_EQ(objects.nexthops.at(101), KernelNexthop(DeviceNexthop{"zd10", {}, {}}));
  EXPECT_EQ(objects.nexthops.at(301), KernelNexthop(NexthopGroup{{{101, 2}, {102, 2}}}));
  EXPECT_THAT(Output("ip route show 203.0.113.0/24"), HasSubstr("nhid 301"));
}

TEST_F(LinuxKernelTest, ANextHopMayChangeSeveralTimesInOneGo) {
  Do(Everything());
  Do({PutNexthop{7, BlackholeNexthop{}}, PutNexthop{7, DeviceNexthop{"zd10", {}, {}}},
      PutNexthop{8, BlackholeNexthop{}}, RemoveNexthop{8}, RemoveNexthop{101},
      PutNexthop{101, NexthopGroup{{{102, 1}}}}});
  const KernelObjects objects = kernel_->Read();
  EXPECT_EQ(objects.nexthops.at(7), KernelNexthop(DeviceNexthop{"zd10", {}, {}}));
  EXPECT_EQ(objects.nexthops.count(8), 0U);
  EXPECT_EQ(objects.nexthops.at(101), KernelNexthop(NexthopGroup{{{102, 1}}}));
}

TEST_F(LinuxKernelTest, RemovesItsOwnObjects) {
  Do(Everything());
  Do({RemoveNexthop{301}, RemoveNexthop{302}, RemoveNexthop{101}, RemoveNexthop{103},
      RemoveNeighbour{{"zd10", NeighbourAddress(101)}}});
  const KernelObjects objects = kernel_->Read();
  EXPECT_EQ(objects.nexthops.size(), 2U);
  EXPECT_EQ(objects.neighbours.size(), 1U);
  Do({RemoveDevice{"zd10"}});
  EXPECT_EQ(kernel_->Read().devices.size(), 0U);
  EXPECT_EQ(kernel_->Devices().count("zd10"), 0U);
}

TEST_F(LinuxKernelTest, ADeviceMadeAgainInOneGoHasItsNewKind) {
  Do(Everything());
  MacvlanDevice other = Macvlan();
  other.parent = "far2";
  Do({RemoveDevice{"zd10"}, PutDevice{"zd10", other, {}},
      PutNexthop{10, DeviceNexthop{"zd10", {}, {}}}});
  EXPECT_EQ(kernel_->Read().devices.at("zd10"), KernelDevice(other));
  EXPECT_EQ(kernel_->Read().nexthops.count(10), 1U);
}

TEST_F(LinuxKernelTest, RemovingWhatIsGoneIsANoOp) {
  Do(Everything());
  Run("ip nexthop del id 101");
  Run("ip neigh del fe80::65 dev zd10");
  Do({RemoveNexthop{101}, RemoveNexthop{999}, RemoveNeighbour{{"zd10", NeighbourAddress(101)}},
      RemoveNeighbour{{"zd99", NeighbourAddress(101)}}, RemoveDevice{"zd99"}});
  Run("ip link del zd10");
  Do({RemoveNeighbour{{"zd10", NeighbourAddress(102)}}, RemoveDevice{"zd10"}});
}

TEST_F(LinuxKernelTest, KnowsTheDevicesThatExist) {
  const auto devices = kernel_->Devices();
  EXPECT_EQ(devices.at("eth2"), 1500U);
  EXPECT_EQ(devices.at("far2"), 1500U);
  EXPECT_EQ(devices.count("eth3"), 0U);
}

TEST_F(LinuxKernelTest, KeepsTheNextHopsOfOthers) {
  Run("ip nexthop add id 101 blackhole");
  Run("ip nexthop add id 102 dev eth2 protocol static");
  const std::string before = Output("ip nexthop");
  EXPECT_EQ(kernel_->Read(), KernelObjects{});
  EXPECT_THAT(
      kernel_->Apply({PutNexthop{101, BlackholeNexthop{}}, PutNexthop{101, BlackholeNexthop{}},
                      RemoveNexthop{102}, PutNexthop{103, BlackholeNexthop{}}}),
      ElementsAre(
          KernelRefusal{
              0, EEXIST,
              "another program has a next hop 101; remove it first: ip nexthop del id 101"},
          KernelRefusal{
              1, EEXIST,
              "another program has a next hop 101; remove it first: ip nexthop del id 101"}));
  Do({RemoveNexthop{103}});
  EXPECT_EQ(Output("ip nexthop"), before);
}

TEST_F(LinuxKernelTest, KeepsTheDevicesOfOthers) {
  Run("ip link add link eth2 name zd10 type macvlan mode bridge");
  const std::string before = Output("ip -d link show zd10; ip nexthop");
  EXPECT_EQ(kernel_->Read(), KernelObjects{});
  EXPECT_THAT(
      kernel_->Apply({PutDevice{"zd10", Macvlan(), {}},
                      PutNexthop{10, DeviceNexthop{"zd10", {}, {}}}, Host(101),
                      RemoveDevice{"zd10"}}),
      ElementsAre(KernelRefusal{0, EEXIST, "another program has a device zd10; remove it first"},
                  KernelRefusal{1, ENODEV, "there is no device zd10"},
                  KernelRefusal{2, ENODEV, "there is no device zd10"}));
  EXPECT_EQ(Output("ip -d link show zd10; ip nexthop"), before);
}

TEST_F(LinuxKernelTest, RefusesImpossibleChanges) {
  Do(Everything());
  MacvlanDevice elsewhere = Macvlan();
  elsewhere.parent = "far2";
  MacvlanDevice nowhere = Macvlan();
  nowhere.parent = "eth3";
  MacvlanDevice large = Macvlan();
  large.mtu = 9000;
  MacvlanDevice small = Macvlan();
  small.mtu = 1000;
  small.address[5] = 1;
  MacvlanDevice same = Macvlan();
  NexthopGroup huge;
  for (std::uint32_t id = 1; id <= kMaxMembers + 1; ++id) huge.members.emplace_back(id, 1);
  const KernelObjects before = kernel_->Read();
  const auto refusals = kernel_->Apply(
      {PutDevice{"zd10", elsewhere, Macvlan()}, PutDevice{"zd11", nowhere, {}},
       PutDevice{"zd12", large, {}}, PutDevice{"zd13", small, {}},
       PutDevice{"zd10", VrfDevice{7}, {}}, PutNexthop{303, huge},
       PutNexthop{304, NexthopGroup{{{999, 1}}}}, PutNexthop{101, NexthopGroup{{{102, 1}}}},
       PutNexthop{101, BlackholeNexthop{}}});
  EXPECT_THAT(
      refusals,
      ElementsAre(
          KernelRefusal{0, EEXIST,
                        "the device zd10 has another kind, parent, tag or table; remove it first"},
          KernelRefusal{1, ENODEV, "there is no device eth3"},
          KernelRefusal{2, EINVAL, "Invalid argument"},
          KernelRefusal{3, EAFNOSUPPORT,
                        "the device zd13 has no IPv6, which its next hop needs; its MTU is 1000, "
                        "and IPv6 takes 1280 or more"},
          KernelRefusal{4, EEXIST,
                        "the device zd10 has another kind, parent, tag or table; remove it first"},
          KernelRefusal{5, E2BIG,
                        "a group of 8192 next hops does not fit into a message; at most 8191 do"},
          KernelRefusal{6, EINVAL, "Invalid nexthop id"},
          KernelRefusal{7, EINVAL, "Can not replace a nexthop with a nexthop group."},
          KernelRefusal{
              8, EINVAL,
              "Blackhole nexthop can not be a member of a group with more than one path"}));
  EXPECT_EQ(kernel_->Read(), before);
  EXPECT_EQ(kernel_->Devices().count("zd13"), 0U);
}

TEST_F(LinuxKernelTest, ANextHopOnADeviceThatIsDownIsRefused) {
  Do(Everything());
  Run("ip link set eth2 down");
  Run("ip link set zd10 down");
  EXPECT_THAT(kernel_->Apply({PutNexthop{10, DeviceNexthop{"zd10", {}, {}}}}),
              ElementsAre(testing::Field(&KernelRefusal::error, ENETDOWN)));
}

TEST_F(LinuxKernelTest, NotifiesOfTheChangesOfOthers) {
  Do(Everything());
  WaitUntilUp("zd10");
  kernel_->TakeNotifications();
  ASSERT_FALSE(HasNotification());
  for (const std::string command :
       {"ip nexthop del id 101", "ip nexthop replace id 102 dev eth2 protocol static",
        "ip neigh del fe80::66 dev zd10", "ip link set zd10 mtu 1350",
        "ip link add eth9 type veth peer name far9", "ip link del zd10", "ip link set eth2 down"}) {
    Run(command);
    EXPECT_TRUE(HasNotification()) << command;
    EXPECT_FALSE(kernel_->TakeNotifications().empty()) << command;
  }
}

// Also about groups that lose a member, and about those that go with their last one.
TEST_F(LinuxKernelTest, NotificationsNameEachObjectThatHasChanged) {
  Do(Everything());
  WaitUntilUp("zd10");
  kernel_->TakeNotifications();
  Run("ip nexthop del id 101; ip nexthop del id 103");
  ForeignChanges changes = kernel_->TakeNotifications();
  EXPECT_FALSE(changes.any_object);
  EXPECT_THAT(changes.objects.nexthops, ElementsAre(101, 103, 301, 302));
  EXPECT_THAT(changes.objects.neighbours, IsEmpty());
  Run("ip neigh del fe80::66 dev zd10");
  changes = kernel_->TakeNotifications();
  EXPECT_FALSE(changes.any_object);
  EXPECT_THAT(changes.objects.neighbours, ElementsAre(Host(102).key));
  EXPECT_THAT(changes.objects.nexthops, IsEmpty());
  Run("ip link set zd10 mtu 1350");
  EXPECT_TRUE(kernel_->TakeNotifications().any_object);
}

TEST_F(LinuxKernelTest, AnObjectOnAnUnknownDeviceIsAReasonToReadEverything) {
  Do(Everything());
  WaitUntilUp("zd10");
  kernel_->TakeNotifications();
  Run("ip neigh add fe80::7 lladdr 02:00:00:00:00:01 dev eth2 protocol 171");
  EXPECT_TRUE(kernel_->TakeNotifications().any_object);
  Run("ip nexthop replace id 102 dev eth2 protocol 171");
  EXPECT_EQ(kernel_->ReadSome({{}, {102}}), std::nullopt);
  EXPECT_EQ(kernel_->ReadSome({{{"zd99", NeighbourAddress(101)}}, {}}), std::nullopt);
}

TEST_F(LinuxKernelTest, ReadsSomeObjects) {
  Do(Everything());
  const KernelObjects all = kernel_->Read();
  const NeighbourKey host = Host(101).key;
  const NeighbourKey none = Host(103).key;
  EXPECT_EQ(kernel_->ReadSome({{host, none}, {10, 77, 101, 103, 301}}),
            (KernelObjects{{},
                           {{host, kHostMac}},
                           {{10, all.nexthops.at(10)},
                            {101, all.nexthops.at(101)},
                            {103, all.nexthops.at(103)},
                            {301, all.nexthops.at(301)}}}));
  EXPECT_EQ(kernel_->ReadSome({}), KernelObjects{});
  // As after a read of everything, the kernel's objects are ours or not.
  Run("ip nexthop del id 102; ip nexthop del id 103; ip nexthop add id 103 blackhole");
  EXPECT_EQ(kernel_->ReadSome({{}, {102, 103}}), KernelObjects{});
  Do({PutNexthop{102, Via(102)}});
  EXPECT_THAT(kernel_->Apply({PutNexthop{103, BlackholeNexthop{}}}),
              ElementsAre(testing::Field(&KernelRefusal::error, EEXIST)));
  Run("ip neigh replace fe80::65 dev zd10 lladdr 02:00:00:00:00:01 nud stale");
  EXPECT_EQ(kernel_->ReadSome({{host}, {}}), KernelObjects{}) << "it is not permanent";
}

// Its members would not fit into the kernel's answer to a query.
TEST_F(LinuxKernelTest, ALargeGroupIsAReasonToReadEverything) {
  std::vector<KernelChange> changes = {PutDevice{"zd10", Macvlan(), {}}};
  const auto add_group = [&changes](std::uint32_t id, std::uint32_t members) {
    NexthopGroup group;
    for (std::uint32_t member = 1; member <= members; ++member) {
      group.members.emplace_back(member, 1);
    }
    changes.emplace_back(PutNexthop{id, std::move(group)});
  };
  for (std::uint32_t id = 1; id <= 402; ++id) {
    changes.emplace_back(PutNexthop{id, DeviceNexthop{"zd10", {}, {}}});
  }
  add_group(1'000, 401);
  add_group(1'001, 402);
  Do(changes);
  WaitUntilUp("zd10");
  kernel_->TakeNotifications();
  Run("ip nexthop del id 402");
  EXPECT_TRUE(kernel_->TakeNotifications().any_object);
  Run("ip nexthop del id 401");
  const ForeignChanges noticed = kernel_->TakeNotifications();
  EXPECT_FALSE(noticed.any_object);
  EXPECT_THAT(noticed.objects.nexthops, ElementsAre(401, 1'000, 1'001));
  EXPECT_NE(kernel_->ReadSome(noticed.objects), std::nullopt);
}

TEST_F(LinuxKernelTest, ChangesToObjectsOfOthersAreNoReasonToRead) {
  Do(Everything());
  WaitUntilUp("zd10");
  kernel_->TakeNotifications();
  for (const std::string command : {"ip nexthop add id 7 blackhole", "ip nexthop del id 7",
                                    "ip neigh add 192.0.2.1 lladdr 02:00:00:00:00:01 dev eth2",
                                    "ip neigh add fe80::7 lladdr 02:00:00:00:00:01 dev eth2"}) {
    Run(command);
    EXPECT_TRUE(HasNotification()) << command;
    EXPECT_TRUE(kernel_->TakeNotifications().empty()) << command;
  }
}

TEST_F(LinuxKernelTest, IsNotNotifiedOfItsOwnNextHopsAndNeighbours) {
  Do({PutDevice{"zd10", Macvlan(), {}}});
  WaitUntilUp("zd10");
  kernel_->TakeNotifications();
  Do({Host(101), PutNexthop{101, Via(101)}, PutNexthop{101, DeviceNexthop{"zd10", {}, {}}},
      RemoveNexthop{101}, Host(102), RemoveNeighbour{{"zd10", NeighbourAddress(102)}}});
  EXPECT_FALSE(HasNotification());
  EXPECT_TRUE(kernel_->TakeNotifications().empty());
}

TEST_F(LinuxKernelTest, LostNotificationsAreAReasonToRead) {
  kernel_->TakeNotifications();
  const int small = 1;
  ASSERT_EQ(setsockopt(kernel_->notification_fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small), 0);
  Run("for id in $(seq 1 40); do echo nexthop add id $id blackhole; done | ip -batch -");
  EXPECT_TRUE(kernel_->TakeNotifications().any_object);
  EXPECT_EQ(kernel_->Read(), KernelObjects{});
}

// A notification about a group of some 8,190 members would be longer than any buffer here.
TEST_F(LinuxKernelTest, ADatagramLongerThanTheBufferIsLost) {
  const NetlinkSockets sockets = OpenNetlinkSockets();
  Run("ip nexthop add id 1 blackhole");
  std::array<char, 16> buffer{};
  try {
    sockets.notifications->Receive(buffer.data(), buffer.size());
    ADD_FAILURE();
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOBUFS);
  }
  EXPECT_EQ(sockets.notifications->Receive(buffer.data(), buffer.size()), 0U);
}

TEST_F(LinuxKernelTest, TheCompatibilityModeIsOffMeanwhile) {
  const std::string show = "cat /proc/sys/net/ipv4/nexthop_compat_mode";
  EXPECT_EQ(Output(show), "0\n");
  kernel_.reset();
  EXPECT_EQ(Output(show), "1\n");
  Run("echo 0 >/proc/sys/net/ipv4/nexthop_compat_mode");
  kernel_ = std::make_unique<LinuxKernel>("");
  kernel_.reset();
  EXPECT_EQ(Output(show), "0\n");
}

// Constructs a `LinuxKernel` on a thread of its own, with or without root's privileges. Returns the
// text of the exception, or "starts".
std::string RefusalToStart(const std::string& netns, bool privileged) {
  std::string text = "starts";
  std::thread thread([&] {
    constexpr uid_t kNobody = 65534;
    // The raw system call changes this thread only.
    const uid_t user = privileged ? 0 : kNobody;
    ASSERT_EQ(syscall(SYS_setresuid, user, user, user), 0);
    try {
      const LinuxKernel kernel(netns);
    } catch (const std::system_error& error) {
      text = error.what();
    }
  });
  thread.join();
  return text;
}

constexpr char kNeedsOwnMounts[] = "skipped: in a chroot, / is not a mount point";

// Gives this process its own mounts. Returns whether that is possible.
bool HasOwnMounts() {
  EXPECT_EQ(unshare(CLONE_NEWNS), 0);
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

class LinuxKernelStartTest : public NetworkNamespaceTest {
 protected:
  // Creates named network namespaces below a /run of the test's own.
  void SetUp() override {
    NetworkNamespaceTest::SetUp();
    if (IsSkipped()) return;
    if (!HasOwnMounts()) GTEST_SKIP() << kNeedsOwnMounts;
    ASSERT_EQ(mount("run", "/run", "tmpfs", 0, nullptr), 0);
    Run("ip netns add red");
  }
};

TEST_F(LinuxKernelStartTest, WorksInANamedNamespace) {
  std::map<std::string, std::uint32_t> devices;
  std::thread thread([&] { devices = LinuxKernel("red").Devices(); });
  thread.join();
  EXPECT_EQ(devices.size(), 1U);
  EXPECT_EQ(devices.count("lo"), 1U);
}

TEST_F(LinuxKernelStartTest, NamesWhatIsMissing) {
  EXPECT_EQ(RefusalToStart("", /*privileged=*/true), "starts");
  EXPECT_EQ(
      RefusalToStart("blue", /*privileged=*/true),
      "cannot open the network namespace blue (create it with ip netns add blue): No such file "
      "or directory");
  EXPECT_EQ(RefusalToStart("", /*privileged=*/false),
            "changing the network needs CAP_NET_ADMIN (run it as root, or allow it: sudo setcap "
            "cap_net_admin+ep PROGRAM): Operation not permitted");
  EXPECT_EQ(RefusalToStart("red", /*privileged=*/false),
            "cannot enter the network namespace red, which needs CAP_SYS_ADMIN (run it as root: "
            "sudo): Operation not permitted");
}

class LinuxKernelFaultTest : public NetworkNamespaceTest {
 protected:
  void SetUp() override {
    NetworkNamespaceTest::SetUp();
    if (IsSkipped()) return;
    Restart();
  }

  // Starts over in a network namespace without any of our objects.
  void Restart() {
    NetlinkSockets sockets = OpenNetlinkSockets();
    auto faulty = std::make_unique<FaultySocket>(std::move(sockets.requests));
    socket_ = faulty.get();
    sockets.requests = std::move(faulty);
    kernel_ = std::make_unique<LinuxKernel>(std::move(sockets));
    kernel_->Read();
  }

  void RemoveAll() {
    Run("ip link del zd10 2>/dev/null || true");
    Run("for id in $(ip nexthop show protocol 171 | cut -d' ' -f2); do ip nexthop del id $id ||"
        " true; done 2>/dev/null");
    ASSERT_EQ(kernel_->Read(), KernelObjects{});
  }

  // Applies everything while the fault is active. Changes that were not refused must be in the
  // kernel, and a second attempt must succeed with the others.
  void Survive(const std::string& place) {
    const std::vector<KernelChange> changes = Everything();
    const auto refusals = kernel_->Apply(changes);
    socket_->before_send = nullptr;
    socket_->before_receive = nullptr;
    refused_ += refusals.empty() ? 0 : 1;
    const KernelObjects present = kernel_->Read();
    KernelObjects accepted;
    std::size_t next = 0;
    for (std::size_t index = 0; index < changes.size(); ++index) {
      if (next < refusals.size() && refusals[next].change == index) {
        EXPECT_NE(refusals[next].error, 0) << place;
        EXPECT_NE(refusals[next].text, "") << place;
        ++next;
      } else {
        Apply(changes[index], &accepted);
      }
    }
    EXPECT_EQ(next, refusals.size()) << place;
    EXPECT_EQ(present, accepted) << place;
    EXPECT_THAT(kernel_->Apply(changes), IsEmpty()) << place;
    EXPECT_EQ(kernel_->Read(), After(changes)) << place;
  }

  std::unique_ptr<LinuxKernel> kernel_;
  FaultySocket* socket_ = nullptr;
  // The number of attempts in which a change was refused.
  int refused_ = 0;
};

// Counts the requests for all objects of a type.
TEST_F(LinuxKernelFaultTest, ReadsSomeObjectsWithoutReadingAll) {
  EXPECT_THAT(kernel_->Apply(Everything()), IsEmpty());
  int queries = 0;
  int dumps = 0;
  socket_->before_send = [&](std::string* bytes) {
    RefuseMessages(bytes, [&](const nlmsghdr& header, const std::string& /*message*/) {
      const bool dump = (header.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
      ++(dump ? dumps : queries);
      return false;
    });
  };
  EXPECT_NE(kernel_->ReadSome({{Host(101).key}, {101, 301}}), std::nullopt);
  EXPECT_EQ(queries, 3);
  EXPECT_EQ(dumps, 0);
}

TEST_F(LinuxKernelFaultTest, CannotReadSomeObjectsIfTheAnswerIsLost) {
  EXPECT_THAT(kernel_->Apply(Everything()), IsEmpty());
  socket_->drops_answers = true;
  EXPECT_EQ(kernel_->ReadSome({{}, {101}}), std::nullopt);
  EXPECT_NE(kernel_->ReadSome({{}, {101}}), std::nullopt);
}

// More often than one read tries.
TEST_F(LinuxKernelFaultTest, AReadAtTheStartWaitsForOtherPrograms) {
  EXPECT_THAT(kernel_->Apply(Everything()), IsEmpty());
  int dumps = 0;
  socket_->before_send = [&](std::string* /*bytes*/) { socket_->drops_answers = ++dumps <= 50; };
  EXPECT_EQ(kernel_->ReadWithin(std::chrono::minutes(5)), After(Everything()));
  EXPECT_GT(dumps, 50);
}

TEST_F(LinuxKernelFaultTest, AReadAtTheStartGivesUpAtTheLimit) {
  socket_->before_send = [this](std::string* /*bytes*/) { socket_->drops_answers = true; };
  try {
    kernel_->ReadWithin(std::chrono::milliseconds(1));
    FAIL() << "it has read something";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EAGAIN);
  }
}

// Only time can help against other programs.
TEST_F(LinuxKernelFaultTest, AReadAtTheStartDoesNotWaitAfterAnotherError) {
  int sends = 0;
  socket_->before_send = [&sends](std::string* /*bytes*/) {
    ++sends;
    Throw(ENOMEM);
  };
  EXPECT_THROW(kernel_->ReadWithin(std::chrono::minutes(5)), std::system_error);
  EXPECT_EQ(sends, 1);
}

class LinuxKernelRefusalTest : public LinuxKernelFaultTest,
                               public testing::WithParamInterface<bool> {};

// The kernel refuses each message in turn. Either its answers arrive, or they are lost.
TEST_P(LinuxKernelRefusalTest, OfEachMessage) {
  bool injected = true;
  int messages = 0;
  for (; injected && messages < 100; ++messages) {
    injected = false;
    int countdown = messages;
    socket_->before_send = [&](std::string* bytes) {
      RefuseMessages(bytes, [&](const nlmsghdr& header, const std::string& /*message*/) {
        const bool asks = header.nlmsg_type == RTM_GETLINK || header.nlmsg_type == RTM_DELLINK ||
                          (header.nlmsg_flags & NLM_F_DUMP) == NLM_F_DUMP;
        if (asks || countdown-- != 0) return false;
        injected = true;
        socket_->drops_answers = GetParam();
        return true;
      });
    };
    Survive("message " + std::to_string(messages));
    RemoveAll();
  }
  // The device's creation, settings and start, and 8 more.
  EXPECT_EQ(messages, 11 + 1);
  EXPECT_EQ(refused_, 11);
}

INSTANTIATE_TEST_SUITE_P(Each, LinuxKernelRefusalTest, testing::Bool(), [](const auto& test) {
  return std::string(test.param ? "AnswerLost" : "Answered");
});

// Each send in turn fails, for lack of memory.
TEST_F(LinuxKernelFaultTest, EachSendFails) {
  bool injected = true;
  int sends = 0;
  for (; injected && sends < 100; ++sends) {
    injected = false;
    int countdown = sends;
    socket_->before_send = [&](std::string* /*bytes*/) {
      if (countdown-- != 0) return;
      injected = true;
      Throw(ENOMEM);
    };
    Survive("send " + std::to_string(sends));
    RemoveAll();
  }
  EXPECT_GE(sends, 5);
  EXPECT_GE(refused_, 3);
}

// Each receive in turn reports dropped answers. The answers are still there, but stale: the next
// request must not mistake them for its own.
TEST_F(LinuxKernelFaultTest, EachAnswerLost) {
  bool injected = true;
  int receives = 0;
  for (; injected && receives < 100; ++receives) {
    injected = false;
    int countdown = receives;
    socket_->before_receive = [&] {
      if (countdown-- != 0) return;
      injected = true;
      Throw(ENOBUFS);
    };
    Survive("receive " + std::to_string(receives));
    RemoveAll();
  }
  EXPECT_GE(receives, 10);
  EXPECT_LT(receives, 100);
  // The kernel has made every change. Only a device's settings are not verified: two receives.
  EXPECT_EQ(refused_, 2);
}

TEST_F(LinuxKernelFaultTest, AReadThatFailsForgetsNothing) {
  const std::vector<KernelChange> changes = Everything();
  EXPECT_THAT(kernel_->Apply(changes), IsEmpty());
  int reads = 0;
  for (bool failed = true; failed && reads < 20; ++reads) {
    int countdown = reads;
    socket_->before_send = [&countdown](std::string* /*bytes*/) {
      if (countdown-- == 0) Throw(ENOMEM);
    };
    failed = false;
    try {
      kernel_->Read();
    } catch (const std::system_error&) {
      failed = true;
    }
    socket_->before_send = nullptr;
    // It still knows which objects are its own.
    EXPECT_THAT(kernel_->Apply(changes), IsEmpty()) << "send " << reads;
  }
  EXPECT_EQ(reads, 3 + 1) << "devices, neighbours and next hops, and a read that succeeds";
}

TEST_F(LinuxKernelFaultTest, AnAnswerIsLostAndTheKernelCannotBeRead) {
  bool lost = false;
  socket_->before_receive = [&lost] {
    if (!std::exchange(lost, true)) Throw(ENOBUFS);
  };
  socket_->before_send = [&lost](std::string* /*bytes*/) {
    if (lost) Throw(ENOMEM);
  };
  EXPECT_EQ(kernel_->Apply({PutNexthop{77, BlackholeNexthop{}}}).size(), 1U);
  socket_->before_send = nullptr;
  EXPECT_EQ(kernel_->Read().nexthops.count(77), 1U) << "the next comparison finds it";
}

TEST_F(LinuxKernelFaultTest, ADeviceThatVanishesInTheMiddle) {
  int sends = 0;
  bool injected = true;
  for (; injected && sends < 100; ++sends) {
    injected = false;
    int countdown = sends;
    socket_->before_send = [&](std::string* /*bytes*/) {
      if (countdown-- != 0) return;
      injected = true;
      Works("ip link del zd10");
    };
    const auto refusals = kernel_->Apply(Everything());
    socket_->before_send = nullptr;
    const KernelObjects present = kernel_->Read();
    const bool stayed = present.devices.count("zd10") > 0;
    EXPECT_EQ(stayed, refusals.empty()) << sends;
    EXPECT_EQ(present.nexthops.count(101) > 0, stayed) << sends;
    EXPECT_THAT(kernel_->Apply(Everything()), IsEmpty()) << sends;
    EXPECT_EQ(kernel_->Read(), After(Everything())) << sends;
    RemoveAll();
  }
  EXPECT_GE(sends, 5);
}

TEST_F(LinuxKernelFaultTest, ADeviceThatAnotherProgramMakesMeanwhileIsKept) {
  int sends = 0;
  socket_->before_send = [&](std::string* /*bytes*/) {
    // The first send looks the device up and finds none.
    if (++sends == 2) Run("ip link add link eth2 name zd10 type macvlan mode bridge");
  };
  EXPECT_THAT(kernel_->Apply({PutDevice{"zd10", Macvlan(), {}}}),
              ElementsAre(KernelRefusal{0, EEXIST, "File exists"}));
  EXPECT_THAT(Output("ip -d link show zd10"), HasSubstr("mode bridge"));
}

TEST_F(LinuxKernelFaultTest, SettingsThatCannotBeWrittenRefuseTheDevice) {
  if (!HasOwnMounts()) GTEST_SKIP() << kNeedsOwnMounts;
  ASSERT_EQ(mount("empty", "/proc/sys/net/ipv6", "tmpfs", 0, nullptr), 0);
  EXPECT_THAT(kernel_->Apply({PutDevice{"zd10", Macvlan(), {}}}),
              ElementsAre(KernelRefusal{
                  0, ENOENT,
                  "cannot write /proc/sys/net/ipv6/conf/zd10/forwarding: No such file or "
                  "directory"}));
  EXPECT_EQ(kernel_->Devices().count("zd10"), 0U);
}

TEST_F(LinuxKernelFaultTest, ADeviceThatCanNeitherBeSetUpNorRemovedIsReported) {
  socket_->before_send = [](std::string* bytes) {
    RefuseMessages(bytes, [](const nlmsghdr& header, const std::string& /*message*/) {
      const bool changes =
          header.nlmsg_type == RTM_NEWLINK && (header.nlmsg_flags & NLM_F_EXCL) == 0;
      return changes || header.nlmsg_type == RTM_DELLINK;
    });
  };
  EXPECT_THAT(kernel_->Apply({PutDevice{"zd10", Macvlan(), {}}}),
              ElementsAre(KernelRefusal{
                  0, EOPNOTSUPP,
                  "Operation not supported; the half-made device stays, because it cannot be "
                  "removed: Operation not supported"}));
  EXPECT_EQ(kernel_->Devices().count("zd10"), 1U);
  socket_->before_send = nullptr;
  EXPECT_THAT(kernel_->Apply({PutDevice{"zd10", Macvlan(), {}}}), IsEmpty());
}

// The second message must not replace a next hop that another program turns out to have.
TEST_F(LinuxKernelFaultTest, ANextHopThatChangesTwiceInABatchStaysForeign) {
  Run("ip nexthop add id 101 blackhole");
  const KernelNexthop ours = BlackholeNexthop{};
  const auto refusals = kernel_->Apply({PutNexthop{101, ours}, PutNexthop{101, ours}});
  ASSERT_EQ(refusals.size(), 2U);
  EXPECT_THAT(refusals[1].text, HasSubstr("another program has a next hop 101"));
  EXPECT_THAT(Output("ip nexthop show id 101"), Not(HasSubstr("proto 171")));
  EXPECT_THAT(kernel_->Apply({PutNexthop{102, ours}, RemoveNexthop{102}, PutNexthop{102, ours}}),
              IsEmpty());
  EXPECT_EQ(kernel_->Read().nexthops.count(102), 1U);
}

TEST_F(LinuxKernelFaultTest, AKernelWithoutNextHopsIsRefused) {
  NetlinkSockets sockets = OpenNetlinkSockets();
  auto faulty = std::make_unique<FaultySocket>(std::move(sockets.requests));
  faulty->before_send = [](std::string* bytes) {
    RefuseMessages(bytes, [](const nlmsghdr&, const std::string&) { return true; });
  };
  sockets.requests = std::move(faulty);
  try {
    const LinuxKernel kernel(std::move(sockets));
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("Linux 5.3 and later have them"));
  }
}

// Random changes, each of which the kernel accepts.
class RandomChanges {
 public:
  explicit RandomChanges(unsigned seed) : random_(seed) {}

  // Returns the next change, and applies it to `objects`.
  KernelChange Next(KernelObjects* objects) {
    KernelChange change = RemoveNexthop{1};
    while (!Pick(*objects, &change)) {
    }
    Apply(change, objects);
    return change;
  }

 private:
  unsigned Below(unsigned end) {
    return std::uniform_int_distribution<unsigned>(0, end - 1)(random_);
  }

  bool Pick(const KernelObjects& objects, KernelChange* change) {
    const std::string device = DestinationDevice(1 + Below(4));
    const bool exists = objects.devices.count(device) > 0;
    const std::uint32_t id = 100 + Below(30);
    const auto nexthop = objects.nexthops.find(id);
    const std::uint32_t group = 300 + Below(10);
    switch (Below(20)) {
      case 0:
      case 1: {
        PutDevice put = {device, NewDevice(device), {}};
        if (exists) put.before = objects.devices.at(device);
        *change = put;
        return true;
      }
      case 2:
        if (Below(4) != 0) return false;
        *change = RemoveDevice{device};
        return exists;
      case 3:
      case 4:
      case 5:
      case 6:
        *change = PutNeighbour{{device, NeighbourAddress(id)}, NewMac()};
        return exists;
      case 7:
        *change = RemoveNeighbour{{device, NeighbourAddress(id)}};
        return true;
      case 8:
        *change = RemoveNexthop{Below(2) == 0 ? id : group};
        return true;
      case 9:
        *change = PutNexthop{id, BlackholeNexthop{}};
        return !IsMember(objects, id);
      case 10:
      case 11:
      case 12:
        return NewGroup(objects, group, change);
      default:
        *change = PutNexthop{
            id, DeviceNexthop{device, Below(4) == 0 ? Ipv6Address{} : NeighbourAddress(id), {}}};
        return exists && (nexthop == objects.nexthops.end() || nexthop->second.index() != 2);
    }
  }

  MacAddress NewMac() { return {0x02, 0, 0, 0, 0, static_cast<std::uint8_t>(Below(256))}; }

  // Devices on the same parent must have different addresses.
  MacAddress NewMacOf(const std::string& device) {
    MacAddress address = NewMac();
    address[4] = static_cast<std::uint8_t>(device.back());
    return address;
  }

  MacvlanDevice NewDevice(const std::string& name) {
    return {"eth2", NewMacOf(name), 1280 + Below(3), "", Below(2) == 0, Below(2) == 0 ? "" : "a"};
  }

  static bool IsMember(const KernelObjects& objects, std::uint32_t id) {
    return std::any_of(objects.nexthops.begin(), objects.nexthops.end(), [&](const auto& entry) {
      const auto* const group = std::get_if<NexthopGroup>(&entry.second);
      return group != nullptr && HasMember(*group, id);
    });
  }

  bool NewGroup(const KernelObjects& objects, std::uint32_t id, KernelChange* change) {
    NexthopGroup group;
    for (const auto& [member, nexthop] : objects.nexthops) {
      if (std::holds_alternative<DeviceNexthop>(nexthop) && Below(3) == 0) {
        group.members.emplace_back(member, 1 + Below(256));
      }
    }
    *change = PutNexthop{id, group};
    return !group.members.empty();
  }

  std::mt19937 random_;
};

TEST_F(LinuxKernelTest, AThousandRandomChanges) {
  constexpr unsigned kSeed = 171;
  RandomChanges random(kSeed);
  KernelObjects expected;
  std::vector<KernelChange> changes;
  for (int count = 1; count <= 1000; ++count) {
    changes.push_back(random.Next(&expected));
    if (count % 10 != 0) continue;
    ASSERT_THAT(kernel_->Apply(changes), IsEmpty()) << count;
    changes.clear();
    ASSERT_EQ(kernel_->Read(), expected) << count;
  }

  std::vector<std::uint32_t> ids;
  for (const auto& entry : Ip("nexthop show protocol 171")) ids.push_back(entry.at("id"));
  std::vector<std::uint32_t> expected_ids;
  for (const auto& [id, nexthop] : expected.nexthops) expected_ids.push_back(id);
  EXPECT_THAT(ids, testing::UnorderedElementsAreArray(expected_ids));
  EXPECT_EQ(Ip("-6 neigh show nud permanent").size(), expected.neighbours.size());
  const auto links = Ip("link show group 171");
  // `ip` shows devices of other groups as empty objects.
  const auto shown = std::count_if(links.begin(), links.end(),
                                   [](const auto& link) { return link.contains("ifname"); });
  EXPECT_EQ(static_cast<std::size_t>(shown), expected.devices.size());
  EXPECT_GT(ids.size(), 0U);
}

}  // namespace
}  // namespace reference
