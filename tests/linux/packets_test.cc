// The effect of each field of each HAL message on packets. Each test sends a packet through a
// router in a network namespace, and checks the field's effect on what the router sends. Needs
// root. If the kernel lacks a feature that a test needs, the test is skipped; with
// ZUSKUX_SKIP_NOTHING=1 in the environment, it fails.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "base_encap_message.pb.h"
#include "reference/data_plane/kernel_data_plane.h"
#include "reference/data_plane/linux/linux_kernel.h"
#include "reference/data_plane/translation.h"
#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"
#include "tests/linux/packet.h"
#include "tests/linux/test_network.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// How long to wait for a packet that must arrive.
constexpr int kPatienceMs = 60'000;

// The lim ids of eth1 to eth3 are the ports' numbers.
constexpr std::uint32_t kTaggedLim = 4;
constexpr std::uint16_t kTag = 20;

// VLAN destination 10 is on eth1, where the tests' packets come from; host 100 is their sender.
constexpr std::uint32_t kInVlan = 10;
constexpr std::uint32_t kSender = 100;
// On eth2, where the marker leaves.
constexpr std::uint32_t kOutVlan = 20;
constexpr std::uint32_t kOutHost = 101;
// The objects that the tests add.
constexpr std::uint32_t kVlan = 30;
constexpr std::uint32_t kHost = 201;
constexpr std::uint32_t kOtherHost = 202;
constexpr std::uint32_t kTunnel = 203;
constexpr std::uint32_t kCircuit = 204;
constexpr std::uint32_t kGroup = 301;

std::string Mac(std::uint8_t number) {
  return std::string("\x02\x00\x00\x00\x01", 5) + static_cast<char>(number);
}
const std::string kInMac = Mac(kInVlan);
const std::string kOutMac = Mac(kOutVlan);
const std::string kVlanMac = Mac(kVlan);
const std::string kSenderMac = Mac(kSender);
const std::string kOutHostMac = Mac(kOutHost);
const std::string kHostMac = Mac(kHost);
const std::string kOtherMac = Mac(kOtherHost);

struct Addresses {
  const char* sender;
  const char* senders;
  const char* router;
  const char* destination;
  const char* destinations;
  const char* marker;
  const char* markers;
};
constexpr Addresses kIpv4Addresses = {"192.0.2.1",    "192.0.2.0/24",   "198.51.100.1/32",
                                      "203.0.113.1",  "203.0.113.0/24", "198.18.0.1",
                                      "198.18.0.0/24"};
constexpr Addresses kIpv6Addresses = {"2001:db8:2::1",   "2001:db8:2::/64",  "2001:db8:ff::1/128",
                                      "2001:db8:71::1",  "2001:db8:71::/64", "2001:db8:18::1",
                                      "2001:db8:18::/64"};

encapsulation::VlanMessage VlanOn(std::uint32_t lim_id, std::uint32_t id) {
  encapsulation::VlanMessage vlan;
  vlan.set_lim_id(std::string(reinterpret_cast<const char*>(&lim_id), sizeof(lim_id)));
  vlan.set_vlan_destination_id(id);
  vlan.set_source_mac_address(Mac(static_cast<std::uint8_t>(id)));
  vlan.add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
  return vlan;
}

encapsulation::HostMessage HostOn(std::uint32_t vlan, std::uint32_t id) {
  encapsulation::HostMessage host;
  host.set_dest_id(id);
  host.set_vlan_dest_id(vlan);
  host.set_dest_mac(Mac(static_cast<std::uint8_t>(id)));
  return host;
}

encapsulation::MplsMessage MplsOn(std::uint32_t below, std::uint32_t id,
                                  const std::vector<std::uint32_t>& labels) {
  encapsulation::MplsMessage mpls;
  mpls.set_dest_id(id);
  mpls.set_vlan_tunnel_dest_id(below);
  mpls.set_dest_mac(kHostMac);
  for (const std::uint32_t label : labels) mpls.add_labels(label);
  return mpls;
}

encapsulation::EcmpMessage EcmpOf(const std::vector<std::uint32_t>& members) {
  encapsulation::EcmpMessage ecmp;
  ecmp.set_db_id(kGroup);
  for (const std::uint32_t member : members) ecmp.add_members(member);
  return ecmp;
}

encapsulation::VrfMessage Vrf(std::uint32_t id) {
  encapsulation::VrfMessage vrf;
  vrf.set_vrf_id(id);
  return vrf;
}

// A packet, and the port from which it left the router.
struct Captured {
  int port = 0;
  Packet packet;
};

std::vector<std::pair<std::uint32_t, bool>> LabelsOf(const Captured& captured) {
  std::vector<std::pair<std::uint32_t, bool>> labels;
  for (const Label& label : captured.packet.labels) labels.emplace_back(label.value, label.bottom);
  return labels;
}

// A data plane on the kernel, in the thread's network namespace. Put a message after those that it
// refers to; a message with the same id replaces the former one.
class ProgrammedKernel {
 public:
  ProgrammedKernel()
      : kernel_(""),
        present_(kernel_.Read()),
        data_plane_(Translation(Interfaces(), DevicesOfOthers()),
                    Leftovers(present_, kernel_.Devices()),
                    KernelAccess{
                        [this](const std::vector<KernelChange>& changes) { return Apply(changes); },
                        [this] {
                          return KernelState{kernel_.Read(), kernel_.Devices()};
                        },
                        {}},
                    [](LogLevel, const std::string&) {}) {}

  void Put(const encapsulation::VrfMessage& vrf) { Store(HalKind::kVrf, vrf.vrf_id(), vrf); }
  void Put(const encapsulation::VlanMessage& vlan) {
    Store(HalKind::kVlan, vlan.vlan_destination_id(), vlan);
  }
  void Put(const encapsulation::HostMessage& host) { Store(HalKind::kHost, host.dest_id(), host); }
  void Put(const encapsulation::MplsMessage& mpls) { Store(HalKind::kMpls, mpls.dest_id(), mpls); }
  void Put(const encapsulation::EcmpMessage& ecmp) { Store(HalKind::kEcmp, ecmp.db_id(), ecmp); }

  // The end of the first reinstall.
  void RemoveLeftovers() { EXPECT_TRUE(data_plane_.RemoveLeftovers(1'000)); }
  std::uint64_t writes() const { return data_plane_.writes().value(); }

 private:
  static InterfaceNames Interfaces() {
    return {{1, "eth1"}, {2, "eth2"}, {3, "eth3"}, {kTaggedLim, "eth2." + std::to_string(kTag)}};
  }

  std::set<std::string> DevicesOfOthers() {
    std::set<std::string> names;
    for (const auto& [name, mtu] : kernel_.Devices()) {
      if (present_.devices.count(name) == 0) names.insert(name);
    }
    return names;
  }

  std::vector<RefusedChange> Apply(const std::vector<KernelChange>& changes) {
    std::vector<RefusedChange> refused;
    for (const LinuxKernel::Refusal& refusal : kernel_.Apply(changes)) {
      refused.push_back({refusal.change, refusal.text});
    }
    return refused;
  }

  void Store(HalKind kind, std::uint32_t id, const google::protobuf::Message& message) {
    const HalReturnCode code = data_plane_.Store(kind, id, message);
    if (code != kHalSuccess) {
      throw std::runtime_error(message.ShortDebugString() + ": " + MakeErrorCode(code).message());
    }
    if (const std::optional<std::string> reason = data_plane_.Commit()) {
      throw std::runtime_error(message.ShortDebugString() + ": " + *reason);
    }
  }

  LinuxKernel kernel_;
  const KernelObjects present_;
  KernelDataPlane data_plane_;
};

class PacketsTest : public ::testing::TestWithParam<Family> {
 protected:
  void SetUp() override {
    try {
      network_.emplace();
    } catch (const std::system_error& error) {
      if (error.code() != std::errc::operation_not_permitted) throw;
      LeaveOut("permission to create network namespaces");
      return;
    }
    hal_.emplace();
    PutFirst();
    Ip(std::string("address add ") + at().router + " dev lo\n" +
       RouteCommand(at().senders, kSender) + RouteCommand(at().markers, kOutHost));
  }

  void PutFirst() {
    Put(VlanOn(1, kInVlan));
    Put(HostOn(kInVlan, kSender));
    Put(VlanOn(2, kOutVlan));
    Put(HostOn(kOutVlan, kOutHost));
  }

  // The server ends, and its objects stay.
  void StopHal() { hal_.reset(); }
  ProgrammedKernel& StartHal() { return hal_.emplace(); }

  // Skips the test if the kernel refuses the command.
  void Need(const std::string& what, const std::string& command) {
    if (IsSkipped() || HasFatalFailure()) return;
    try {
      Ip(command + '\n');
    } catch (const std::runtime_error&) {
      LeaveOut(what);
    }
  }

  void LeaveOut(const std::string& what) {
    if (std::getenv("ZUSKUX_SKIP_NOTHING") != nullptr) FAIL() << "this kernel lacks " << what;
    GTEST_SKIP() << "needs " << what;
  }

  template <typename Message>
  void Put(const Message& message) {
    hal_->Put(message);
  }

  static std::string RouteCommand(const std::string& prefix, std::uint32_t id,
                                  std::uint32_t vrf = 0) {
    return "route add " + prefix + (vrf != 0 ? " vrf zv" + std::to_string(vrf) : "") + " nhid " +
           std::to_string(id) + '\n';
  }
  static void RouteTo(std::uint32_t id, std::uint32_t vrf = 0) {
    Ip(RouteCommand(at().destinations, id, vrf));
  }

  static const Addresses& at() {
    return GetParam() == Family::kIpv4 ? kIpv4Addresses : kIpv6Addresses;
  }

  // From the sender to the destination, as it arrives at eth1.
  static Probe TheProbe() {
    Probe probe;
    probe.mac = kInMac;
    probe.source = at().sender;
    probe.destination = at().destination;
    probe.port = 1;
    return probe;
  }

  PacketSocket& Outside(int port) { return network_->Outside(port); }

  // Sends the packet into a port. Returns what leaves the router because of it.
  std::vector<Captured> Through(const Probe& probe = TheProbe(), int port = 1) {
    Outside(port).Send(probe);
    return BeforeTheMarker();
  }

  // Sends a marker, and returns what leaves the router before it. Ignores packets that devices send
  // on their own, such as multicast membership reports.
  std::vector<Captured> BeforeTheMarker() {
    Probe marker = TheProbe();
    marker.destination = at().marker;
    marker.port = ++last_marker_;
    Outside(1).Send(marker);
    std::vector<Captured> captured;
    for (;;) {
      const std::optional<Packet> packet = Outside(2).Receive(kPatienceMs);
      if (!packet.has_value()) throw std::runtime_error("the router no longer forwards");
      if (packet->port == marker.port) break;
      captured.push_back({2, *packet});
    }
    for (const int other : {1, 3}) {
      while (const std::optional<Packet> packet = Outside(other).Receive(0)) {
        captured.push_back({other, *packet});
      }
    }
    const auto is_their_own = [](const Captured& one) {
      return one.packet.port == 0 && !one.packet.path_mtu.has_value();
    };
    captured.erase(std::remove_if(captured.begin(), captured.end(), is_their_own), captured.end());
    return captured;
  }

  // The one packet that leaves the router.
  Captured OneThrough(const Probe& probe = TheProbe(), int port = 1) {
    const std::vector<Captured> captured = Through(probe, port);
    EXPECT_THAT(captured, SizeIs(1));
    return captured.empty() ? Captured() : captured.front();
  }

 private:
  static constexpr std::uint16_t kFirstMarker = 1000;

  std::optional<TestNetwork> network_;
  std::optional<ProgrammedKernel> hal_;
  std::uint16_t last_marker_ = kFirstMarker;
};

const auto kFamilies = ::testing::Values(Family::kIpv4, Family::kIpv6);
std::string FamilyName(const ::testing::TestParamInfo<Family>& info) {
  return info.param == Family::kIpv4 ? "Ipv4" : "Ipv6";
}

class VlanPacketsTest : public PacketsTest {};
class HostPacketsTest : public PacketsTest {};
class EcmpPacketsTest : public PacketsTest {};
class RestartPacketsTest : public PacketsTest {};
class TaggedPacketsTest : public PacketsTest {
 protected:
  void SetUp() override {
    PacketsTest::SetUp();
    Need("802.1Q devices", "link add link eth3 name eth3.9 type vlan id 9");
  }
};
class VrfPacketsTest : public PacketsTest {
 protected:
  void SetUp() override {
    PacketsTest::SetUp();
    Need("VRF devices", "link add zv9 type vrf table 9");
  }
};
class CpuPacketsTest : public PacketsTest {
 protected:
  void SetUp() override {
    PacketsTest::SetUp();
    Need("dummy devices", "link add zcpu9 type dummy");
  }
};
class MplsPacketsTest : public PacketsTest {
 protected:
  void SetUp() override {
    PacketsTest::SetUp();
    Need("MPLS encapsulation", "nexthop add id 9 encap mpls 16 dev zd20 via 192.0.2.9 onlink");
  }
};

INSTANTIATE_TEST_SUITE_P(, VlanPacketsTest, kFamilies, FamilyName);
INSTANTIATE_TEST_SUITE_P(, HostPacketsTest, kFamilies, FamilyName);
INSTANTIATE_TEST_SUITE_P(, EcmpPacketsTest, kFamilies, FamilyName);
INSTANTIATE_TEST_SUITE_P(, RestartPacketsTest, kFamilies, FamilyName);
INSTANTIATE_TEST_SUITE_P(, TaggedPacketsTest, kFamilies, FamilyName);
INSTANTIATE_TEST_SUITE_P(, VrfPacketsTest, kFamilies, FamilyName);
INSTANTIATE_TEST_SUITE_P(, CpuPacketsTest, kFamilies, FamilyName);
INSTANTIATE_TEST_SUITE_P(, MplsPacketsTest, kFamilies, FamilyName);

// VLAN destinations.

TEST_P(VlanPacketsTest, LimIdIsTheInterfaceThatPacketsLeave) {
  Put(VlanOn(3, kVlan));
  Put(HostOn(kVlan, kHost));
  RouteTo(kHost);
  EXPECT_EQ(OneThrough().port, 3);
}

TEST_P(VlanPacketsTest, SourceMacIsTheirSourceAddress) {
  RouteTo(kOutHost);
  EXPECT_EQ(OneThrough().packet.from, kOutMac);
}

TEST_P(VlanPacketsTest, WithoutSourceMacTheSourceAddressIsLocallyAdministered) {
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.clear_source_mac_address();
  Put(vlan);
  Put(HostOn(kVlan, kHost));
  RouteTo(kHost);
  constexpr unsigned kGroupBit = 1;
  constexpr unsigned kLocalBit = 2;
  const auto first = static_cast<unsigned char>(OneThrough().packet.from.at(0));
  EXPECT_EQ(first & (kGroupBit | kLocalBit), kLocalBit);
}

TEST_P(VlanPacketsTest, SourceMacIsTheAddressThatPacketsAreSentTo) {
  RouteTo(kOutHost);
  Probe probe = TheProbe();
  probe.mac = kVlanMac;
  EXPECT_THAT(Through(probe), IsEmpty());
}

TEST_P(VlanPacketsTest, MtuIsTheSizeOfTheLargestPacket) {
  constexpr std::uint32_t kMtu = 1300;
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.set_mtu(kMtu);
  Put(vlan);
  Put(HostOn(kVlan, kHost));
  RouteTo(kHost);
  Probe probe = TheProbe();
  probe.size = kMtu;
  EXPECT_EQ(OneThrough(probe).port, 3);

  probe.size = kMtu + 1;
  const Captured answer = OneThrough(probe);
  EXPECT_EQ(answer.port, 1);
  EXPECT_EQ(answer.packet.to, kSenderMac);
  EXPECT_EQ(answer.packet.destination, at().sender);
  EXPECT_EQ(answer.packet.path_mtu, kMtu);
}

TEST_P(VlanPacketsTest, RoutedForwardsWhatArrives) {
  Put(VlanOn(3, kVlan));
  RouteTo(kOutHost);
  Probe probe = TheProbe();
  probe.mac = kVlanMac;
  EXPECT_EQ(OneThrough(probe, 3).port, 2);
}

TEST_P(VlanPacketsTest, NotRoutedForwardsNothingThatArrives) {
  if (GetParam() == Family::kIpv6 && !HasSysctl("ipv6/conf/all/force_forwarding")) {
    GTEST_SKIP() << "before Linux 6.17, IPv6 forwarding cannot be turned off for a single device";
  }
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.clear_capabilities();
  Put(vlan);
  RouteTo(kOutHost);
  Probe probe = TheProbe();
  probe.mac = kVlanMac;
  EXPECT_THAT(Through(probe, 3), IsEmpty());
}

TEST_P(VlanPacketsTest, NotRoutedStillSends) {
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.clear_capabilities();
  Put(vlan);
  Put(HostOn(kVlan, kHost));
  RouteTo(kHost);
  EXPECT_EQ(OneThrough().port, 3);
}

TEST_P(VlanPacketsTest, ServesRoutesToItself) {
  Put(VlanOn(3, kVlan));
  RouteTo(kVlan);
  Ip(std::string("neigh add ") + at().destination + " lladdr 02:00:00:00:01:c9 dev zd30\n");
  const Captured captured = OneThrough();
  EXPECT_EQ(captured.port, 3);
  EXPECT_EQ(captured.packet.to, kHostMac);
  EXPECT_EQ(captured.packet.from, kVlanMac);
}

TEST_P(VlanPacketsTest, ANewSourceMacTakesEffect) {
  Put(VlanOn(3, kVlan));
  Put(HostOn(kVlan, kHost));
  RouteTo(kHost);
  EXPECT_EQ(OneThrough().packet.from, kVlanMac);
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.set_source_mac_address(kOtherMac);
  Put(vlan);
  const Captured captured = OneThrough();
  EXPECT_EQ(captured.packet.from, kOtherMac);
  EXPECT_EQ(captured.packet.to, kHostMac);
}

TEST_P(VlanPacketsTest, AnotherInterfaceTakesEffect) {
  Put(VlanOn(3, kVlan));
  Put(HostOn(kVlan, kHost));
  RouteTo(kHost);
  EXPECT_EQ(OneThrough().port, 3);
  Put(VlanOn(2, kVlan));
  const Captured captured = OneThrough();
  EXPECT_EQ(captured.port, 2);
  EXPECT_EQ(captured.packet.from, kVlanMac);
  EXPECT_EQ(captured.packet.to, kHostMac);
}

TEST_P(TaggedPacketsTest, LimIdOfATaggedInterfaceIsTheTagThatPacketsLeaveWith) {
  Put(VlanOn(kTaggedLim, kVlan));
  Put(HostOn(kVlan, kHost));
  RouteTo(kHost);
  const Captured captured = OneThrough();
  EXPECT_EQ(captured.port, 2);
  EXPECT_EQ(captured.packet.tag, kTag);
  EXPECT_EQ(captured.packet.from, kVlanMac);
  EXPECT_EQ(captured.packet.to, kHostMac);
}

TEST_P(TaggedPacketsTest, WithoutATagPacketsLeaveWithout) {
  RouteTo(kOutHost);
  EXPECT_EQ(OneThrough().packet.tag, std::nullopt);
}

TEST_P(TaggedPacketsTest, TakesPacketsWithTheTagOnly) {
  Put(VlanOn(kTaggedLim, kVlan));
  Put(VlanOn(3, kVlan + 1));
  Put(HostOn(kVlan + 1, kHost));
  RouteTo(kHost);
  Probe probe = TheProbe();
  probe.mac = kVlanMac;
  EXPECT_THAT(Through(probe, 2), IsEmpty());
  probe.tag = kTag + 1;
  EXPECT_THAT(Through(probe, 2), IsEmpty());
  probe.tag = kTag;
  EXPECT_EQ(OneThrough(probe, 2).port, 3);
}

// VRFs.

TEST_P(VrfPacketsTest, ARouteServesItsOwnVrfOnly) {
  for (const std::uint32_t vrf : {1U, 2U}) {
    Put(Vrf(vrf));
    encapsulation::VlanMessage vlan = VlanOn(3, kVlan + vrf);
    vlan.set_vrf(vrf);
    Put(vlan);
  }
  RouteTo(kOutHost, 1);
  Probe probe = TheProbe();
  probe.mac = Mac(kVlan + 1);
  EXPECT_EQ(OneThrough(probe, 3).port, 2);
  probe.mac = Mac(kVlan + 2);
  EXPECT_THAT(Through(probe, 3), IsEmpty());
  // The main table.
  EXPECT_THAT(Through(), IsEmpty());
}

TEST_P(VrfPacketsTest, EachHasItsOwnRouteForAPrefix) {
  Put(HostOn(kOutVlan, kHost));
  for (const std::uint32_t vrf : {1U, 2U}) {
    Put(Vrf(vrf));
    encapsulation::VlanMessage vlan = VlanOn(3, kVlan + vrf);
    vlan.set_vrf(vrf);
    Put(vlan);
  }
  RouteTo(kOutHost, 1);
  RouteTo(kHost, 2);
  Probe probe = TheProbe();
  probe.mac = Mac(kVlan + 1);
  EXPECT_EQ(OneThrough(probe, 3).packet.to, kOutHostMac);
  probe.mac = Mac(kVlan + 2);
  EXPECT_EQ(OneThrough(probe, 3).packet.to, kHostMac);
}

TEST_P(VrfPacketsTest, SendsOutOfItsVlans) {
  Put(Vrf(1));
  for (const std::uint32_t port : {2U, 3U}) {
    encapsulation::VlanMessage vlan = VlanOn(port, kVlan + port);
    vlan.set_vrf(1);
    Put(vlan);
  }
  Put(HostOn(kVlan + 2, kHost));
  RouteTo(kHost, 1);
  Probe probe = TheProbe();
  probe.mac = Mac(kVlan + 3);
  const Captured captured = OneThrough(probe, 3);
  EXPECT_EQ(captured.port, 2);
  EXPECT_EQ(captured.packet.to, kHostMac);
}

TEST_P(VrfPacketsTest, ZeroIsTheMainTable) {
  Put(Vrf(0));
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.set_vrf(0);
  Put(vlan);
  RouteTo(kOutHost);
  Probe probe = TheProbe();
  probe.mac = kVlanMac;
  EXPECT_EQ(OneThrough(probe, 3).port, 2);
}

TEST_P(VrfPacketsTest, AnotherVrfTakesEffect) {
  Put(Vrf(1));
  Put(VlanOn(3, kVlan));
  Put(HostOn(kVlan, kHost));
  RouteTo(kHost);
  Put(HostOn(kOutVlan, kOtherHost));
  RouteTo(kOtherHost, 1);
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.set_vrf(1);
  Put(vlan);
  // Packets that arrive on it belong to the VRF; packets routed to the host still leave by it.
  Probe probe = TheProbe();
  probe.mac = kVlanMac;
  EXPECT_EQ(OneThrough(probe, 3).packet.to, kOtherMac);
  const Captured captured = OneThrough();
  EXPECT_EQ(captured.port, 3);
  EXPECT_EQ(captured.packet.to, kHostMac);
}

TEST_P(VrfPacketsTest, TheMainTableServesWhatAVrfHasNoRouteFor) {
  Put(Vrf(1));
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.set_vrf(1);
  Put(vlan);
  RouteTo(kOutHost);
  Probe probe = TheProbe();
  probe.mac = kVlanMac;
  EXPECT_EQ(OneThrough(probe, 3).port, 2);
  // The remedy from docs/linux.md.
  Ip("route add unreachable default metric 4278198272 vrf zv1\n", GetParam());
  EXPECT_THAT(Through(probe, 3), IsEmpty());
}

// Hosts.

TEST_P(HostPacketsTest, DestMacIsTheAddressThatPacketsAreSentTo) {
  RouteTo(kOutHost);
  EXPECT_EQ(OneThrough().packet.to, kOutHostMac);
}

TEST_P(HostPacketsTest, ANewDestMacTakesEffect) {
  RouteTo(kOutHost);
  EXPECT_EQ(OneThrough().packet.to, kOutHostMac);
  encapsulation::HostMessage host = HostOn(kOutVlan, kOutHost);
  host.set_dest_mac(kOtherMac);
  Put(host);
  EXPECT_EQ(OneThrough().packet.to, kOtherMac);
}

TEST_P(HostPacketsTest, VlanDestIdIsTheVlanThatPacketsLeave) {
  Put(VlanOn(3, kVlan));
  Put(HostOn(kOutVlan, kHost));
  RouteTo(kHost);
  EXPECT_EQ(OneThrough().packet.from, kOutMac);
  Put(HostOn(kVlan, kHost));
  const Captured captured = OneThrough();
  EXPECT_EQ(captured.port, 3);
  EXPECT_EQ(captured.packet.from, kVlanMac);
}

TEST_P(HostPacketsTest, FlagDropDrops) {
  encapsulation::HostMessage host = HostOn(kOutVlan, kHost);
  host.add_flags(encapsulation::ACTION_DROP);
  Put(host);
  RouteTo(kHost);
  EXPECT_THAT(Through(), IsEmpty());
  Put(HostOn(kOutVlan, kHost));
  EXPECT_EQ(OneThrough().packet.to, kHostMac);
}

TEST_P(CpuPacketsTest, FlagToCpuBringsPacketsToTheCpuDevice) {
  encapsulation::HostMessage host = HostOn(kOutVlan, kHost);
  host.add_flags(encapsulation::ACTION_TO_CPU);
  Put(host);
  RouteTo(kHost);
  PacketSocket cpu("zcpu");
  EXPECT_THAT(Through(), IsEmpty());
  const std::optional<Packet> packet = cpu.Receive(0);
  ASSERT_TRUE(packet.has_value());
  EXPECT_EQ(packet->port, TheProbe().port);
}

TEST_P(CpuPacketsTest, AHostWithoutMacIsForTheCpu) {
  encapsulation::HostMessage host = HostOn(kOutVlan, kHost);
  host.clear_dest_mac();
  Put(host);
  RouteTo(kHost);
  PacketSocket cpu("zcpu");
  EXPECT_THAT(Through(), IsEmpty());
  const std::optional<Packet> packet = cpu.Receive(0);
  ASSERT_TRUE(packet.has_value());
  EXPECT_EQ(packet->port, TheProbe().port);
}

TEST_P(CpuPacketsTest, AnMplsDestinationsFlagToCpuToo) {
  encapsulation::MplsMessage mpls = MplsOn(kOutVlan, kTunnel, {100});
  mpls.set_flag(encapsulation::ACTION_TO_CPU);
  Put(mpls);
  RouteTo(kTunnel);
  PacketSocket cpu("zcpu");
  EXPECT_THAT(Through(), IsEmpty());
  const std::optional<Packet> packet = cpu.Receive(0);
  ASSERT_TRUE(packet.has_value());
  EXPECT_EQ(packet->port, TheProbe().port);
}

// MPLS.

TEST_P(MplsPacketsTest, LabelIsTheBottomOfTheStack) {
  Put(MplsOn(kOutVlan, kTunnel, {100}));
  RouteTo(kTunnel);
  const Captured captured = OneThrough();
  EXPECT_EQ(captured.port, 2);
  EXPECT_THAT(LabelsOf(captured), ElementsAre(std::pair(100, true)));
  EXPECT_EQ(captured.packet.from, kOutMac);
  EXPECT_EQ(captured.packet.to, kHostMac);
  EXPECT_EQ(captured.packet.destination, at().destination);
}

TEST_P(MplsPacketsTest, DestMacIsTheAddressThatPacketsAreSentTo) {
  encapsulation::MplsMessage mpls = MplsOn(kOutVlan, kTunnel, {100});
  mpls.set_dest_mac(kOtherMac);
  Put(mpls);
  RouteTo(kTunnel);
  EXPECT_EQ(OneThrough().packet.to, kOtherMac);
}

TEST_P(MplsPacketsTest, ANewLabelTakesEffect) {
  Put(MplsOn(kOutVlan, kTunnel, {100}));
  RouteTo(kTunnel);
  Put(MplsOn(kOutVlan, kTunnel, {(1U << 20U) - 1}));
  EXPECT_THAT(LabelsOf(OneThrough()), ElementsAre(std::pair((1U << 20U) - 1, true)));
}

TEST_P(MplsPacketsTest, ATunnelsLabelIsOutsideTheCircuits) {
  Put(MplsOn(kOutVlan, kTunnel, {100}));
  Put(MplsOn(kTunnel, kCircuit, {200}));
  RouteTo(kCircuit);
  EXPECT_THAT(LabelsOf(OneThrough()), ElementsAre(std::pair(100, false), std::pair(200, true)));
}

TEST_P(MplsPacketsTest, ACircuitFollowsItsTunnel) {
  Put(MplsOn(kOutVlan, kTunnel, {100}));
  Put(MplsOn(kTunnel, kCircuit, {200}));
  RouteTo(kCircuit);
  Put(VlanOn(3, kVlan));
  Put(MplsOn(kVlan, kTunnel, {101}));
  const Captured captured = OneThrough();
  EXPECT_THAT(LabelsOf(captured), ElementsAre(std::pair(101, false), std::pair(200, true)));
  EXPECT_EQ(captured.port, 3);
  EXPECT_EQ(captured.packet.from, kVlanMac);
}

TEST_P(MplsPacketsTest, ACircuitWithoutMacHasItsTunnels) {
  encapsulation::MplsMessage tunnel = MplsOn(kOutVlan, kTunnel, {100});
  tunnel.set_dest_mac(kOtherMac);
  Put(tunnel);
  encapsulation::MplsMessage circuit = MplsOn(kTunnel, kCircuit, {200});
  circuit.clear_dest_mac();
  Put(circuit);
  RouteTo(kCircuit);
  EXPECT_EQ(OneThrough().packet.to, kOtherMac);
}

TEST_P(MplsPacketsTest, ACircuitDropsWhenItsTunnelDoes) {
  encapsulation::MplsMessage tunnel = MplsOn(kOutVlan, kTunnel, {100});
  Put(tunnel);
  Put(MplsOn(kTunnel, kCircuit, {200}));
  RouteTo(kCircuit);
  tunnel.set_flag(encapsulation::ACTION_DROP);
  Put(tunnel);
  EXPECT_THAT(Through(), IsEmpty());
}

TEST_P(MplsPacketsTest, ThirtyLabelsAreTheMost) {
  constexpr std::uint32_t kMost = 30;
  std::vector<std::uint32_t> labels;
  for (std::uint32_t label = 0; label < kMost; ++label) labels.push_back(1000 + label);
  Put(MplsOn(kOutVlan, kTunnel, labels));
  RouteTo(kTunnel);
  const Captured captured = OneThrough();
  ASSERT_THAT(captured.packet.labels, SizeIs(kMost));
  for (std::size_t i = 0; i < kMost; ++i) {
    EXPECT_EQ(captured.packet.labels[i].value, labels[i]);
    EXPECT_EQ(captured.packet.labels[i].bottom, i + 1 == kMost);
  }
  labels.push_back(1);
  EXPECT_THROW(Put(MplsOn(kOutVlan, kCircuit, labels)), std::runtime_error);
}

TEST_P(MplsPacketsTest, FlagDropDrops) {
  encapsulation::MplsMessage mpls = MplsOn(kOutVlan, kTunnel, {100});
  mpls.set_flag(encapsulation::ACTION_DROP);
  Put(mpls);
  RouteTo(kTunnel);
  EXPECT_THAT(Through(), IsEmpty());
}

TEST_P(MplsPacketsTest, TheVlansMtuAppliesWithLabels) {
  constexpr std::uint32_t kMtu = 1400;
  constexpr std::uint32_t kLabelSize = 4;
  encapsulation::VlanMessage vlan = VlanOn(3, kVlan);
  vlan.set_mtu(kMtu);
  Put(vlan);
  Put(MplsOn(kVlan, kTunnel, {100, 101}));
  RouteTo(kTunnel);
  Probe probe = TheProbe();
  probe.size = kMtu - 2 * kLabelSize;
  EXPECT_EQ(OneThrough(probe).port, 3);
  ++probe.size;
  const Captured answer = OneThrough(probe);
  EXPECT_EQ(answer.port, 1);
  EXPECT_EQ(answer.packet.path_mtu, kMtu - 2 * kLabelSize);
}

// ECMP groups.

TEST_P(EcmpPacketsTest, SpreadsFlowsByHowOftenAMemberIsNamed) {
  constexpr int kFlows = 4000;
  Put(HostOn(kOutVlan, kHost));
  Put(HostOn(kOutVlan, kOtherHost));
  Put(EcmpOf({kHost, kOtherHost, kHost, kHost}));
  RouteTo(kGroup);
  int to_host = 0;
  int to_other = 0;
  for (int flow = 0; flow < kFlows; ++flow) {
    Probe probe = TheProbe();
    const std::string high = std::to_string(flow / 250);
    const std::string low = std::to_string(flow % 250 + 1);
    probe.source = GetParam() == Family::kIpv4 ? "10.1." + high + '.' + low
                                               : "2001:db8:a::" + high + ':' + low;
    Outside(1).Send(probe);
    // Drains the queues before they overflow.
    if (flow % 100 != 99) continue;
    for (const Captured& captured : BeforeTheMarker()) {
      (captured.packet.to == kHostMac ? to_host : to_other) += 1;
    }
  }
  EXPECT_EQ(to_host + to_other, kFlows);
  EXPECT_NEAR(to_host, kFlows * 3 / 4, kFlows * 5 / 100);
}

TEST_P(EcmpPacketsTest, AFlowStaysWithItsMember) {
  Put(HostOn(kOutVlan, kHost));
  Put(HostOn(kOutVlan, kOtherHost));
  Put(EcmpOf({kHost, kOtherHost}));
  RouteTo(kGroup);
  const std::string member = OneThrough().packet.to;
  for (int packet = 0; packet < 20; ++packet) EXPECT_EQ(OneThrough().packet.to, member);
}

TEST_P(EcmpPacketsTest, LeavesOutMembersThatDrop) {
  Put(HostOn(kOutVlan, kHost));
  Put(HostOn(kOutVlan, kOtherHost));
  Put(EcmpOf({kHost, kOtherHost}));
  RouteTo(kGroup);
  encapsulation::HostMessage host = HostOn(kOutVlan, kHost);
  host.add_flags(encapsulation::ACTION_DROP);
  Put(host);
  for (int flow = 1; flow <= 20; ++flow) {
    Probe probe = TheProbe();
    probe.source += std::to_string(flow);
    EXPECT_EQ(OneThrough(probe).packet.to, kOtherMac);
  }
}

TEST_P(EcmpPacketsTest, DropsIfAllItsMembersDo) {
  encapsulation::HostMessage host = HostOn(kOutVlan, kHost);
  host.add_flags(encapsulation::ACTION_DROP);
  Put(host);
  Put(EcmpOf({kHost}));
  RouteTo(kGroup);
  EXPECT_THAT(Through(), IsEmpty());
}

TEST_P(EcmpPacketsTest, ServesItsRoutesAgainWhenAMemberForwards) {
  encapsulation::HostMessage host = HostOn(kOutVlan, kHost);
  Put(host);
  Put(EcmpOf({kHost}));
  RouteTo(kGroup);
  host.add_flags(encapsulation::ACTION_DROP);
  Put(host);
  EXPECT_THAT(Through(), IsEmpty());
  host.clear_flags();
  Put(host);
  EXPECT_EQ(OneThrough().packet.to, kHostMac);
}

TEST_P(EcmpPacketsTest, NewMembersTakeEffect) {
  Put(HostOn(kOutVlan, kHost));
  Put(HostOn(kOutVlan, kOtherHost));
  Put(EcmpOf({kHost}));
  RouteTo(kGroup);
  EXPECT_EQ(OneThrough().packet.to, kHostMac);
  Put(EcmpOf({kOtherHost}));
  EXPECT_EQ(OneThrough().packet.to, kOtherMac);
}

TEST_P(MplsPacketsTest, AGroupMayHoldHostsAndTunnels) {
  Put(HostOn(kOutVlan, kOtherHost));
  Put(MplsOn(kOutVlan, kTunnel, {100}));
  Put(EcmpOf({kTunnel, kOtherHost}));
  RouteTo(kGroup);
  bool with_label = false;
  bool without = false;
  for (int flow = 1; flow <= 99; ++flow) {
    Probe probe = TheProbe();
    probe.source += std::to_string(flow);
    const Captured captured = OneThrough(probe);
    (captured.packet.labels.empty() ? without : with_label) = true;
    EXPECT_EQ(captured.packet.to, captured.packet.labels.empty() ? kOtherMac : kHostMac);
  }
  EXPECT_TRUE(with_label);
  EXPECT_TRUE(without);
}

// Restarts of the server.

TEST_P(RestartPacketsTest, TheKernelForwardsWithoutAServer) {
  RouteTo(kOutHost);
  StopHal();
  EXPECT_EQ(OneThrough().packet.to, kOutHostMac);
}

TEST_P(RestartPacketsTest, AReinstallOfTheSameObjectsWritesNothing) {
  Put(HostOn(kOutVlan, kHost));
  Put(EcmpOf({kOutHost, kHost, kHost}));
  RouteTo(kGroup);
  StopHal();
  ProgrammedKernel& hal = StartHal();
  PutFirst();
  EXPECT_THAT(Through(), SizeIs(1));
  Put(HostOn(kOutVlan, kHost));
  Put(EcmpOf({kOutHost, kHost, kHost}));
  hal.RemoveLeftovers();
  EXPECT_EQ(hal.writes(), 0);
  EXPECT_THAT(Through(), SizeIs(1));
}

TEST_P(RestartPacketsTest, RoutesStayWhenADestinationChangesMeanwhile) {
  RouteTo(kOutHost);
  StopHal();
  ProgrammedKernel& hal = StartHal();
  Put(VlanOn(1, kInVlan));
  Put(HostOn(kInVlan, kSender));
  Put(VlanOn(2, kOutVlan));
  EXPECT_EQ(OneThrough().packet.to, kOutHostMac);
  encapsulation::HostMessage host = HostOn(kOutVlan, kOutHost);
  host.set_dest_mac(kOtherMac);
  Put(host);
  hal.RemoveLeftovers();
  EXPECT_EQ(OneThrough().packet.to, kOtherMac);
}

TEST_P(RestartPacketsTest, UnnamedObjectsForwardUntilTheReinstallEnds) {
  Put(HostOn(kOutVlan, kHost));
  RouteTo(kHost);
  StopHal();
  ProgrammedKernel& hal = StartHal();
  PutFirst();
  EXPECT_EQ(OneThrough().packet.to, kHostMac);
  hal.RemoveLeftovers();
  EXPECT_THAT(Through(), IsEmpty());
}

}  // namespace
}  // namespace reference
