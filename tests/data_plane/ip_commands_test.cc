/// Changes as commands: their text, and their effect when the installed `ip` runs them.

#include "reference/data_plane/ip_commands.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "reference/data_plane/difference.h"

namespace reference {
namespace {

using Lines = std::vector<std::string>;

MacvlanDevice Macvlan() {
  MacvlanDevice device;
  device.parent = "eth0";
  device.address = {2, 0, 0, 0, 1, 10};
  return device;
}

template <typename Object, typename Change>
Object With(Object object, Change change) {
  change(&object);
  return object;
}

struct CommandCase {
  const char* name;
  KernelChange change;
  Lines lines;
};

class IpCommandsTest : public testing::TestWithParam<CommandCase> {};

TEST_P(IpCommandsTest, DoTheSame) { EXPECT_EQ(IpCommands(GetParam().change), GetParam().lines); }

const auto kCaseName = [](const auto& test) { return std::string(test.param.name); };

INSTANTIATE_TEST_SUITE_P(
    NewDevices, IpCommandsTest,
    testing::Values(
        CommandCase{
            "Vrf",
            PutDevice{"zv7", VrfDevice{7}, {}},
            {"ip link add zv7 group 171 type vrf table 7",
             "sysctl -qw 'net/ipv6/conf/zv7/disable_ipv6=0'", "ip link set zv7 addrgenmode none",
             "sysctl -qw 'net/ipv4/conf/zv7/forwarding=1'",
             "sysctl -qw 'net/ipv6/conf/zv7/forwarding=1'",
             "sysctl -eqw 'net/ipv6/conf/zv7/force_forwarding=1' || :", "ip link set zv7 up"}},
        CommandCase{"Dummy",
                    PutDevice{"zcpu", DummyDevice{}, {}},
                    {"ip link add zcpu group 171 type dummy",
                     "sysctl -qw 'net/ipv6/conf/zcpu/disable_ipv6=0'",
                     "ip link set zcpu addrgenmode none", "ip link set zcpu up"}},
        CommandCase{"Tagged",
                    PutDevice{"eth2.20", TaggedDevice{"eth2", 20}, {}},
                    {"ip link add link eth2 name eth2.20 group 171 type vlan id 20",
                     "sysctl -qw 'net/ipv6/conf/eth2.20/disable_ipv6=0'",
                     "ip link set eth2.20 addrgenmode none", "ip link set eth2.20 up"}},
        CommandCase{"Macvlan",
                    PutDevice{"zd10", Macvlan(), {}},
                    {"ip link add link eth0 name zd10 address 02:00:00:00:01:0a group 171 "
                     "type macvlan mode private",
                     "sysctl -qw 'net/ipv6/conf/zd10/disable_ipv6=0'",
                     "ip link set zd10 addrgenmode none", "ip link set zd10 up"}},
        CommandCase{
            "MacvlanWithEverything",
            PutDevice{"zd10",
                      With(Macvlan(),
                           [](MacvlanDevice* device) {
                             device->mtu = 1400;
                             device->master = "zv7";
                             device->forwarding = true;
                             device->alias = "acme's site";
                           }),
                      {}},
            {"ip link add link eth0 name zd10 address 02:00:00:00:01:0a group 171 mtu 1400 type "
             "macvlan mode private",
             "sysctl -qw 'net/ipv6/conf/zd10/disable_ipv6=0'", "ip link set zd10 addrgenmode none",
             "ip link set zd10 alias 'acme'\\''s site'",
             "sysctl -qw 'net/ipv4/conf/zd10/forwarding=1'",
             "sysctl -qw 'net/ipv6/conf/zd10/forwarding=1'",
             "sysctl -eqw 'net/ipv6/conf/zd10/force_forwarding=1' || :",
             "ip link set zd10 master zv7", "ip link set zd10 up"}}),
    kCaseName);

INSTANTIATE_TEST_SUITE_P(
    ChangedDevices, IpCommandsTest,
    testing::Values(
        CommandCase{
            "Address",
            PutDevice{"zd10", With(Macvlan(), [](auto* device) { device->address[5] = 11; }),
                      Macvlan()},
            {"ip link set zd10 address 02:00:00:00:01:0b"}},
        CommandCase{
            "Mtu",
            PutDevice{"zd10", With(Macvlan(), [](auto* device) { device->mtu = 1400; }), Macvlan()},
            {"ip link set zd10 mtu 1400"}},
        CommandCase{
            "MtuOfTheParent",
            PutDevice{"zd10", Macvlan(), With(Macvlan(), [](auto* device) { device->mtu = 1400; })},
            {"ip link set zd10 mtu "
             "\"$(ip link show eth0 | sed -n 's/.* mtu \\([0-9]*\\).*/\\1/p')\""}},
        CommandCase{"NoAlias",
                    PutDevice{"zd10", Macvlan(),
                              With(Macvlan(), [](auto* device) { device->alias = "acme"; })},
                    {"ip link set zd10 alias ''"}},
        CommandCase{"Forwarding",
                    PutDevice{"zd10", Macvlan(),
                              With(Macvlan(), [](auto* device) { device->forwarding = true; })},
                    {"sysctl -qw 'net/ipv4/conf/zd10/forwarding=0'",
                     "sysctl -qw 'net/ipv6/conf/zd10/forwarding=0'",
                     "sysctl -eqw 'net/ipv6/conf/zd10/force_forwarding=0' || :"}}),
    kCaseName);

INSTANTIATE_TEST_SUITE_P(
    Others, IpCommandsTest,
    testing::Values(
        CommandCase{"RemoveDevice", RemoveDevice{"zd10"}, {"ip link del zd10"}},
        CommandCase{"PutNeighbour",
                    PutNeighbour{{"zd10", NeighbourAddress(101)}, {2, 0, 0, 0, 1, 10}},
                    {"ip neigh replace fe80::65 lladdr 02:00:00:00:01:0a dev zd10 nud permanent "
                     "protocol 171"}},
        CommandCase{"RemoveNeighbour",
                    RemoveNeighbour{{"zd10", NeighbourAddress(101)}},
                    {"ip neigh del fe80::65 dev zd10"}},
        CommandCase{"Blackhole",
                    PutNexthop{102, BlackholeNexthop{}},
                    {"ip -6 nexthop replace id 102 blackhole protocol 171"}},
        CommandCase{"DeviceAlone",
                    PutNexthop{10, DeviceNexthop{"zd10", {}, {}}},
                    {"ip -6 nexthop replace id 10 dev zd10 protocol 171"}},
        CommandCase{"Neighbour",
                    PutNexthop{101, DeviceNexthop{"zd10", NeighbourAddress(101), {}}},
                    {"ip -6 nexthop replace id 101 via fe80::65 dev zd10 onlink protocol 171"}},
        CommandCase{"Labels",
                    PutNexthop{201, DeviceNexthop{"zd10", NeighbourAddress(201), {1201, 16}}},
                    {"ip -6 nexthop replace id 201 encap mpls 1201/16 via fe80::c9 dev zd10 "
                     "onlink protocol 171"}},
        CommandCase{"Group",
                    PutNexthop{301, NexthopGroup{{{10, 1}, {101, 3}}}},
                    {"ip nexthop replace id 301 group 10/101,3 protocol 171"}},
        CommandCase{"RemoveNexthop", RemoveNexthop{301}, {"ip nexthop del id 301"}}),
    kCaseName);

/// A shell command's output on both streams, and its exit status.
struct Outcome {
  std::string output;
  int status = -1;
};

Outcome RunInNewNamespace(const Lines& lines) {
  const std::string path = testing::TempDir() + "ip_commands_" + std::to_string(getpid());
  std::ofstream script(path);
  for (const std::string& line : lines) script << line << '\n';
  script.close();
  FILE* const pipe = popen(("unshare --net sh -eu " + path + " 2>&1").c_str(), "r");
  Outcome outcome;
  std::array<char, 4096> buffer{};
  while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) outcome.output += buffer.data();
  outcome.status = WEXITSTATUS(pclose(pipe));
  unlink(path.c_str());
  return outcome;
}

const Lines kInterfaces = {"ip link set lo up", "ip link add eth0 type veth peer name eth1",
                           "ip link set eth0 up", "ip link set eth1 up"};

// Prints MTU, MAC address and alias.
const std::string kShowLink =
    "ip link show zd10 | sed -n 's/.* mtu \\([0-9]*\\).*/\\1/p; s/.*alias //p; "
    "s,.*link/ether \\([^ ]*\\).*,\\1,p'";

void AppendDifference(const KernelObjects& before, const KernelObjects& after, Lines* lines) {
  for (const KernelChange& change : Difference(before, after)) {
    for (const std::string& line : IpCommands(change)) lines->push_back(line);
  }
}

// Two uplinks with a neighbour each, and a group of both.
KernelObjects TwoUplinks() {
  KernelObjects objects;
  objects.devices = {{"zd10", With(Macvlan(),
                                   [](auto* device) {
                                     device->mtu = 1400;
                                     device->forwarding = true;
                                     device->alias = "the east's";
                                   })},
                     {"zd11", With(Macvlan(), [](auto* device) { device->address[5] = 11; })}};
  objects.neighbours = {{{"zd10", NeighbourAddress(101)}, {2, 0, 0, 0, 2, 1}},
                        {{"zd11", NeighbourAddress(102)}, {2, 0, 0, 0, 2, 2}}};
  objects.nexthops = {{10, DeviceNexthop{"zd10", {}, {}}},
                      {101, DeviceNexthop{"zd10", NeighbourAddress(101), {}}},
                      {102, DeviceNexthop{"zd11", NeighbourAddress(102), {}}},
                      {301, NexthopGroup{{{101, 1}, {102, 3}}}}};
  return objects;
}

class RealIpTest : public testing::Test {
 protected:
  void SetUp() override {
    Lines lines = kInterfaces;
    lines.emplace_back("ip link add zd1 link eth0 type macvlan mode private");
    lines.emplace_back("ip -6 nexthop add id 1 blackhole");
    const Outcome outcome = RunInNewNamespace(lines);
    if (outcome.status != 0) GTEST_SKIP() << "the kernel lacks: " << outcome.output;
  }
};

TEST_F(RealIpTest, TakesTheCommandsForEveryChange) {
  const KernelObjects before = TwoUplinks();
  // The first device gets another MAC address, the second another parent; 102 drops.
  KernelObjects after = before;
  after.devices["zd10"] = With(Macvlan(), [](auto* device) { device->address[5] = 12; });
  after.devices["zd11"] = With(Macvlan(), [](auto* device) { device->parent = "eth1"; });
  after.neighbours.erase({"zd11", NeighbourAddress(102)});
  after.nexthops[102] = BlackholeNexthop{};
  after.nexthops[301] = NexthopGroup{{{101, 1}}};

  Lines lines = kInterfaces;
  AppendDifference({}, before, &lines);
  lines.emplace_back("ip -N nexthop; " + kShowLink);
  AppendDifference(before, after, &lines);
  lines.emplace_back("ip -N nexthop; ip -N neigh show nud permanent; " + kShowLink);
  lines.emplace_back("sysctl -n net/ipv4/conf/zd10/forwarding");
  AppendDifference(after, {}, &lines);
  lines.emplace_back("ip -N nexthop; ip -N neigh show nud permanent; ip link show group 171");
  const Outcome outcome = RunInNewNamespace(lines);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output,
            "id 10 dev zd10 scope 253 proto 171 \n"
            "id 101 via fe80::65 dev zd10 scope 253 proto 171 onlink \n"
            "id 102 via fe80::66 dev zd11 scope 253 proto 171 onlink \n"
            "id 301 group 101/102,3 proto 171 \n"
            "1400\n"
            "02:00:00:00:01:0a\n"
            "the east's\n"
            "id 10 dev zd10 scope 253 proto 171 \n"
            "id 101 via fe80::65 dev zd10 scope 253 proto 171 onlink \n"
            "id 102 blackhole proto 171 \n"
            "id 301 group 101 proto 171 \n"
            "fe80::65 dev zd10 lladdr 02:00:00:00:02:01 PERMANENT proto 171 \n"
            "1500\n"
            "02:00:00:00:01:0c\n"
            "0\n");
}

}  // namespace
}  // namespace reference
