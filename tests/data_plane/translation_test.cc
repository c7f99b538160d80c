/// The kernel objects for the entries of the HAL's tables: each field, and each dependency.

#include "reference/data_plane/translation.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "reference/data_plane/difference.h"
#include "tests/data_plane/model_kernel.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

constexpr std::uint32_t kEth0 = 100;
constexpr std::uint32_t kEth1 = 101;
constexpr std::uint32_t kEth1Tag20 = 120;
constexpr std::uint32_t kEth2 = 102;

const InterfaceNames& Interfaces() {
  static const InterfaceNames names = {
      {kEth0, "eth0"}, {kEth1, "eth1"}, {kEth1Tag20, "eth1.20"}, {kEth2, "eth2"},
      {200, "eth0.7"}, {201, "eth0.0"}, {202, "eth0.4095"},      {203, "eth0.020"},
      {204, "eth0.x"}, {205, "eth0."},  {206, "eth2.20"},        {207, "eth0.4094"}};
  return names;
}

// eth0.7 belongs to another program, and eth2 does not exist.
const std::set<std::string>& Devices() {
  static const std::set<std::string> devices = {"lo", "eth0", "eth1", "eth0.7"};
  return devices;
}

std::string LimId(std::uint32_t id) {
  std::string bytes(sizeof id, '\0');
  std::memcpy(bytes.data(), &id, sizeof id);
  return bytes;
}

const std::string kMacBytes("\x02\x00\x00\x00\x01\x0a", 6);
constexpr MacAddress kMac = {2, 0, 0, 0, 1, 10};
const std::string kOtherMacBytes("\x02\x00\x00\x00\x01\x0b", 6);
constexpr MacAddress kOtherMac = {2, 0, 0, 0, 1, 11};

encapsulation::VlanMessage VlanOn(std::uint32_t id, std::uint32_t lim = kEth0) {
  encapsulation::VlanMessage vlan;
  vlan.set_vlan_destination_id(id);
  vlan.set_lim_id(LimId(lim));
  vlan.set_source_mac_address(kMacBytes);
  return vlan;
}

encapsulation::HostMessage Neighbour(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac(kMacBytes);
  return host;
}

encapsulation::MplsMessage Tunnel(std::uint32_t id, std::uint32_t below, std::uint32_t label) {
  encapsulation::MplsMessage mpls = MplsOn(id, below, label);
  mpls.set_dest_mac(kMacBytes);
  return mpls;
}

template <typename Message, typename Change>
Message With(Message message, Change change) {
  change(&message);
  return message;
}

/// An entry's message, of any kind.
struct AnyEntry {
  AnyEntry(const encapsulation::VrfMessage& vrf)
      : kind(HalKind::kVrf), id(vrf.vrf_id()), bytes(vrf.SerializeAsString()) {}
  AnyEntry(const encapsulation::VlanMessage& vlan)
      : kind(HalKind::kVlan), id(vlan.vlan_destination_id()), bytes(vlan.SerializeAsString()) {}
  AnyEntry(const encapsulation::HostMessage& host)
      : kind(HalKind::kHost), id(host.dest_id()), bytes(host.SerializeAsString()) {}
  AnyEntry(const encapsulation::MplsMessage& mpls)
      : kind(HalKind::kMpls), id(mpls.dest_id()), bytes(mpls.SerializeAsString()) {}
  AnyEntry(const encapsulation::EcmpMessage& ecmp)
      : kind(HalKind::kEcmp), id(ecmp.db_id()), bytes(ecmp.SerializeAsString()) {}

  HalReturnCode StoreIn(Translation* translation) const {
    return VisitKind(kind, [this, translation](auto row) {
      typename decltype(row)::Message message;
      EXPECT_TRUE(message.ParseFromString(bytes));
      return translation->Store(kind, id, message);
    });
  }

  HalKind kind;
  std::uint32_t id;
  std::string bytes;
};

using Entries = std::vector<AnyEntry>;

Translation Translated(const Entries& entries) {
  Translation translation(Interfaces(), Devices());
  for (const AnyEntry& entry : entries) {
    EXPECT_EQ(entry.StoreIn(&translation), kHalSuccess)
        << HalKindName(entry.kind) << ' ' << entry.id;
  }
  return translation;
}

KernelObjects ObjectsOf(const Entries& entries) { return Translated(entries).Objects(); }

MacvlanDevice Macvlan(const std::string& parent) {
  MacvlanDevice device;
  device.parent = parent;
  device.address = kMac;
  return device;
}

/// The kernel objects of VLAN destination 10 on eth0.
KernelObjects VlanObjects(const MacvlanDevice& device = Macvlan("eth0")) {
  KernelObjects objects;
  objects.devices = {{"zd10", device}};
  objects.nexthops = {{10, DeviceNexthop{"zd10", {}, {}}}};
  return objects;
}

// VRFs.

TEST(TranslateVrfTest, IsADeviceWithATable) {
  KernelObjects expected;
  expected.devices = {{"zv7", VrfDevice{7}}, {"zv4294967295", VrfDevice{4294967295}}};
  EXPECT_TRUE(ObjectsOf({Vrf(7), Vrf(4294967295), Vrf(7)}) == expected);
}

TEST(TranslateVrfTest, ZeroIsTheMainTable) {
  EXPECT_TRUE(ObjectsOf({Vrf(0)}) == KernelObjects());
  Translation translation = Translated({Vrf(0)});
  translation.Remove(HalKind::kVrf, 0);
  EXPECT_TRUE(translation.Objects() == KernelObjects());
}

TEST(TranslateVrfTest, TheKernelsOwnTablesAreNotSupported) {
  Translation translation(Interfaces(), Devices());
  for (const std::uint32_t vrf : {253U, 254U, 255U}) {
    EXPECT_EQ(translation.Store(HalKind::kVrf, vrf, Vrf(vrf)), kHalNotSupported) << vrf;
    EXPECT_EQ(translation.reason(), "VRFs 253 to 255 are the kernel's own tables");
  }
  for (const std::uint32_t vrf : {252U, 256U}) {
    EXPECT_EQ(translation.Store(HalKind::kVrf, vrf, Vrf(vrf)), kHalSuccess) << vrf;
  }
}

// VLAN destinations.

struct VlanCase {
  const char* name;
  std::function<void(encapsulation::VlanMessage*)> message;
  std::function<void(MacvlanDevice*)> device;
};

class TranslateVlanTest : public testing::TestWithParam<VlanCase> {};

TEST_P(TranslateVlanTest, FieldIsInTheDevice) {
  MacvlanDevice device = Macvlan("eth0");
  GetParam().device(&device);
  KernelObjects expected = VlanObjects(device);
  if (!device.master.empty()) expected.devices["zv7"] = VrfDevice{7};
  EXPECT_TRUE(ObjectsOf({With(VlanOn(10), GetParam().message)}) == expected);
}

using VlanPtr = encapsulation::VlanMessage*;
INSTANTIATE_TEST_SUITE_P(
    Fields, TranslateVlanTest,
    testing::Values(
        VlanCase{"LimId", [](VlanPtr vlan) { vlan->set_lim_id(LimId(kEth1)); },
                 [](MacvlanDevice* device) { device->parent = "eth1"; }},
        VlanCase{"OnlyTheFirstBytesOfTheLimIdCount",
                 [](VlanPtr vlan) { vlan->set_lim_id(LimId(kEth1) + "more"); },
                 [](MacvlanDevice* device) { device->parent = "eth1"; }},
        VlanCase{"AnotherOnesSubinterface", [](VlanPtr vlan) { vlan->set_lim_id(LimId(200)); },
                 [](MacvlanDevice* device) { device->parent = "eth0.7"; }},
        VlanCase{"SourceMac", [](VlanPtr vlan) { vlan->set_source_mac_address(kOtherMacBytes); },
                 [](MacvlanDevice* device) { device->address = kOtherMac; }},
        VlanCase{"NoSourceMac", [](VlanPtr vlan) { vlan->clear_source_mac_address(); },
                 [](MacvlanDevice* device) { device->address = {2, 0x7A, 0, 0, 0, 10}; }},
        VlanCase{"Mtu", [](VlanPtr vlan) { vlan->set_mtu(1280); },
                 [](MacvlanDevice* device) { device->mtu = 1280; }},
        VlanCase{"Vrf", [](VlanPtr vlan) { vlan->set_vrf(7); },
                 [](MacvlanDevice* device) { device->master = "zv7"; }},
        VlanCase{"VrfZero", [](VlanPtr vlan) { vlan->set_vrf(0); }, [](MacvlanDevice*) {}},
        VlanCase{"Routed",
                 [](VlanPtr vlan) {
                   vlan->add_capabilities(encapsulation::VLAN_CAPABILITY_NONE);
                   vlan->add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
                 },
                 [](MacvlanDevice* device) { device->forwarding = true; }},
        VlanCase{"ListValues",
                 [](VlanPtr vlan) {
                   vlan->add_list_values("acme");
                   vlan->add_list_values("site 2");
                 },
                 [](MacvlanDevice* device) { device->alias = "acme site 2"; }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(TranslateVlanTest, ASubinterfaceIsCreatedAndRemovedWithItsLastDestination) {
  Translation translation = Translated({VlanOn(10, kEth1Tag20), VlanOn(11, kEth1Tag20)});
  const KernelDevice tagged = TaggedDevice{"eth1", 20};
  EXPECT_TRUE(translation.Objects().devices.at("eth1.20") == tagged);
  EXPECT_TRUE(translation.Objects().devices.at("zd10") == KernelDevice(Macvlan("eth1.20")));
  translation.Remove(HalKind::kVlan, 10);
  EXPECT_EQ(translation.Objects().devices.count("eth1.20"), 1);
  translation.Remove(HalKind::kVlan, 11);
  EXPECT_TRUE(translation.Objects() == KernelObjects());
}

TEST(TranslateVlanTest, TheLargestTagIsAccepted) {
  const KernelDevice tagged = TaggedDevice{"eth0", 4094};
  EXPECT_TRUE(ObjectsOf({VlanOn(10, 207)}).devices.at("eth0.4094") == tagged);
}

TEST(TranslateVlanTest, AVrfExistsAsLongAsItsEntryOrADestinationInIt) {
  const auto vlan = With(VlanOn(10), [](VlanPtr message) { message->set_vrf(7); });
  Translation translation = Translated({vlan, Vrf(7)});
  translation.Remove(HalKind::kVrf, 7);
  EXPECT_EQ(translation.Objects().devices.count("zv7"), 1);
  translation.Remove(HalKind::kVlan, 10);
  EXPECT_TRUE(translation.Objects() == KernelObjects());

  Translation other = Translated({vlan, Vrf(7)});
  other.Remove(HalKind::kVlan, 10);
  EXPECT_EQ(other.Objects().devices.count("zv7"), 1);
}

TEST(TranslateDeviceTest, AnInterfaceWorksOnceItsDeviceHasCome) {
  Translation translation = Translated({});
  EXPECT_EQ(AnyEntry(VlanOn(10, kEth2)).StoreIn(&translation), kHalNoInterface);
  EXPECT_TRUE(translation.NoteDevices({"eth0", "eth2"}, {}));
  EXPECT_EQ(AnyEntry(VlanOn(10, kEth2)).StoreIn(&translation), kHalSuccess);
  EXPECT_EQ(AnyEntry(VlanOn(11, 206)).StoreIn(&translation), kHalSuccess);
  const KernelDevice tagged = TaggedDevice{"eth2", 20};
  EXPECT_TRUE(translation.Objects().devices.at("eth2.20") == tagged);
}

TEST(TranslateDeviceTest, EntriesOutliveTheirDevice) {
  Translation translation = Translated({VlanOn(10)});
  EXPECT_FALSE(translation.NoteDevices({}, {}));
  EXPECT_EQ(AnyEntry(VlanOn(10)).StoreIn(&translation), kHalSuccess);
  EXPECT_TRUE(translation.NoteDevices({"eth0"}, {})) << "is back";
}

TEST(TranslateDeviceTest, AnInterfaceComesWithItsLink) {
  Translation translation = Translated({});
  EXPECT_TRUE(translation.NoteDevices({"eth0"}, {"eth0"}));
  EXPECT_FALSE(translation.NoteDevices({"eth0"}, {"eth0"}));
  EXPECT_FALSE(translation.NoteDevices({"eth0"}, {}));
  EXPECT_TRUE(translation.NoteDevices({"eth0"}, {"eth0"}));
}

TEST(TranslateDeviceTest, OtherDevicesAreOfNoInterest) {
  Translation translation = Translated({});
  EXPECT_FALSE(translation.NoteDevices({"eth0", "docker0"}, {"lo", "docker0"}));
}

TEST(TranslateDeviceTest, ASubinterfaceIsNotOursIfAnotherProgramWasFirst) {
  Translation translation = Translated({});
  EXPECT_TRUE(translation.NoteDevices({"eth1", "eth1.20"}, {}));
  EXPECT_EQ(AnyEntry(VlanOn(10, kEth1Tag20)).StoreIn(&translation), kHalSuccess);
  EXPECT_EQ(translation.Objects().devices.count("eth1.20"), 0U);
}

TEST(TranslateDeviceTest, ASubinterfaceStaysOursWhileEntriesUseIt) {
  Translation translation = Translated({VlanOn(10, kEth1Tag20)});
  const KernelObjects before = translation.Objects();
  EXPECT_FALSE(translation.NoteDevices({"eth1", "eth1.20"}, {}));
  EXPECT_TRUE(translation.Objects() == before);
  translation.Remove(HalKind::kVlan, 10);
  EXPECT_TRUE(translation.Objects() == KernelObjects());
}

// Hosts and MPLS destinations.

/// VLAN destination 10 with neighbour `id` on it.
KernelObjects Forwarding(std::uint32_t id, const std::vector<std::uint32_t>& labels = {},
                         const MacAddress& mac = kMac) {
  KernelObjects objects = VlanObjects();
  objects.neighbours = {{{"zd10", NeighbourAddress(id)}, mac}};
  objects.nexthops[id] = DeviceNexthop{"zd10", NeighbourAddress(id), labels};
  return objects;
}

KernelObjects Dropping(std::uint32_t id) {
  KernelObjects objects = VlanObjects();
  objects.nexthops[id] = BlackholeNexthop{};
  return objects;
}

KernelObjects ToCpu(std::uint32_t id) {
  KernelObjects objects = VlanObjects();
  objects.devices["zcpu"] = DummyDevice{};
  objects.nexthops[id] = DeviceNexthop{"zcpu", {}, {}};
  return objects;
}

struct RiderCase {
  const char* name;
  AnyEntry entry;
  KernelObjects expected;
};

class TranslateRiderTest : public testing::TestWithParam<RiderCase> {};

TEST_P(TranslateRiderTest, OnAVlanDestination) {
  EXPECT_TRUE(ObjectsOf({VlanOn(10), GetParam().entry}) == GetParam().expected);
}

using HostPtr = encapsulation::HostMessage*;
using MplsPtr = encapsulation::MplsMessage*;
INSTANTIATE_TEST_SUITE_P(
    Hosts, TranslateRiderTest,
    testing::Values(
        RiderCase{"HostForwards", Neighbour(101, 10), Forwarding(101)},
        RiderCase{
            "HostDestMac",
            With(Neighbour(101, 10), [](HostPtr host) { host->set_dest_mac(kOtherMacBytes); }),
            Forwarding(101, {}, kOtherMac)},
        RiderCase{"HostDrops",
                  With(Neighbour(101, 10),
                       [](HostPtr host) { host->add_flags(encapsulation::ACTION_DROP); }),
                  Dropping(101)},
        RiderCase{"HostDropsBeforeItGoesToTheCpu",
                  With(Neighbour(101, 10),
                       [](HostPtr host) {
                         host->add_flags(encapsulation::ACTION_DROP);
                         host->add_flags(encapsulation::ACTION_TO_CPU);
                       }),
                  Dropping(101)},
        RiderCase{"HostToCpu",
                  With(Neighbour(101, 10),
                       [](HostPtr host) { host->add_flags(encapsulation::ACTION_TO_CPU); }),
                  ToCpu(101)},
        RiderCase{"HostWithActionNoneForwards",
                  With(Neighbour(101, 10),
                       [](HostPtr host) { host->add_flags(encapsulation::ACTION_NONE); }),
                  Forwarding(101)},
        RiderCase{"HostWithoutMacGoesToTheCpu", HostOn(101, 10), ToCpu(101)},
        RiderCase{"HostOnNothingGoesToTheCpu",
                  With(Host(101), [](HostPtr host) { host->set_dest_mac(kMacBytes); }), ToCpu(101)},
        RiderCase{"HostOnAMissingVlanDrops", Neighbour(101, 99), Dropping(101)}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Mpls, TranslateRiderTest,
    testing::Values(
        RiderCase{"MplsPushes", Tunnel(201, 10, 1201), Forwarding(201, {1201})},
        RiderCase{"MplsWithoutLabelForwards",
                  With(Tunnel(201, 10, 0), [](MplsPtr mpls) { mpls->clear_labels(); }),
                  Forwarding(201)},
        RiderCase{"MplsPushesInOrder",
                  With(Tunnel(201, 10, 3), [](MplsPtr mpls) { mpls->add_labels(2); }),
                  Forwarding(201, {3, 2})},
        RiderCase{"MplsPushesThirtyLabels",
                  With(Tunnel(201, 10, 7),
                       [](MplsPtr mpls) {
                         for (int i = 1; i < 30; ++i) mpls->add_labels(7);
                       }),
                  Forwarding(201, std::vector<std::uint32_t>(30, 7))},
        RiderCase{"MplsDrops",
                  With(Tunnel(201, 10, 1201),
                       [](MplsPtr mpls) { mpls->set_flag(encapsulation::ACTION_DROP); }),
                  Dropping(201)},
        RiderCase{"MplsToCpu",
                  With(Tunnel(201, 10, 1201),
                       [](MplsPtr mpls) { mpls->set_flag(encapsulation::ACTION_TO_CPU); }),
                  ToCpu(201)},
        RiderCase{"MplsWithoutMacGoesToTheCpu", MplsOn(201, 10, 1201), ToCpu(201)},
        RiderCase{"MplsOnNothingGoesToTheCpu", Tunnel(201, 0, 1201), ToCpu(201)},
        RiderCase{"MplsOnAMissingTunnelDrops", Tunnel(201, 99, 1201), Dropping(201)}),
    [](const auto& test) { return std::string(test.param.name); });

/// A circuit 301 on tunnel 201 on VLAN destination 10.
KernelNexthop CircuitOn(const encapsulation::MplsMessage& tunnel) {
  return ObjectsOf({VlanOn(10), tunnel, MplsOn(301, 201, 16)}).nexthops.at(301);
}

TEST(TranslateCircuitTest, PushesTheTunnelsLabelsOutermost) {
  const auto tunnel = With(Tunnel(201, 10, 1201), [](MplsPtr mpls) { mpls->add_labels(1202); });
  const KernelObjects objects =
      ObjectsOf({VlanOn(10), tunnel, MplsOn(301, 201, 16), MplsOn(302, 301, 17)});
  const KernelNexthop one = DeviceNexthop{"zd10", NeighbourAddress(301), {1201, 1202, 16}};
  const KernelNexthop two = DeviceNexthop{"zd10", NeighbourAddress(302), {1201, 1202, 16, 17}};
  EXPECT_TRUE(objects.nexthops.at(301) == one);
  EXPECT_TRUE(objects.nexthops.at(302) == two);
}

TEST(TranslateCircuitTest, HasTheTunnelsMacUnlessItHasItsOwn) {
  const auto own =
      With(MplsOn(302, 201, 17), [](MplsPtr mpls) { mpls->set_dest_mac(kOtherMacBytes); });
  const KernelObjects objects =
      ObjectsOf({VlanOn(10), Tunnel(201, 10, 1201), MplsOn(301, 201, 16), own});
  EXPECT_EQ(objects.neighbours.at({"zd10", NeighbourAddress(301)}), kMac);
  EXPECT_EQ(objects.neighbours.at({"zd10", NeighbourAddress(302)}), kOtherMac);
}

TEST(TranslateCircuitTest, FollowsItsTunnelToTheCpuOrNowhere) {
  const KernelNexthop drops = BlackholeNexthop{};
  const KernelNexthop to_cpu = DeviceNexthop{"zcpu", {}, {}};
  EXPECT_TRUE(CircuitOn(With(Tunnel(201, 10, 1201), [](MplsPtr mpls) {
                mpls->set_flag(encapsulation::ACTION_DROP);
              })) == drops);
  EXPECT_TRUE(CircuitOn(With(Tunnel(201, 10, 1201), [](MplsPtr mpls) {
                mpls->set_flag(encapsulation::ACTION_TO_CPU);
              })) == to_cpu);
  EXPECT_TRUE(CircuitOn(MplsOn(201, 10, 1201)) == to_cpu);
}

TEST(TranslateCircuitTest, ChangesWithItsTunnel) {
  Translation translation =
      Translated({VlanOn(10), VlanOn(11, kEth1), Tunnel(201, 10, 1201), MplsOn(301, 201, 16)});
  EXPECT_EQ(AnyEntry(Tunnel(201, 11, 1999)).StoreIn(&translation), kHalSuccess);
  const KernelNexthop moved = DeviceNexthop{"zd11", NeighbourAddress(301), {1999, 16}};
  EXPECT_TRUE(translation.Objects().nexthops.at(301) == moved);
  EXPECT_EQ(translation.Objects().neighbours.count({"zd10", NeighbourAddress(301)}), 0);

  translation.Remove(HalKind::kMpls, 201);
  const KernelNexthop drops = BlackholeNexthop{};
  EXPECT_TRUE(translation.Objects().nexthops.at(301) == drops);
}

TEST(TranslateHostTest, DoesNotRideOnWhatIsNoVlanDestination) {
  Translation translation = Translated({VlanOn(10), Neighbour(101, 10)});
  translation.Remove(HalKind::kVlan, 10);
  EXPECT_EQ(AnyEntry(VlanOn(11)).StoreIn(&translation), kHalSuccess);
  EXPECT_EQ(AnyEntry(Tunnel(10, 11, 5)).StoreIn(&translation), kHalSuccess);
  const KernelNexthop drops = BlackholeNexthop{};
  EXPECT_TRUE(translation.Objects().nexthops.at(101) == drops);
}

// Groups.

/// The next hop of group 301 with these members; 10 and 101 forward, and 102 drops.
KernelNexthop GroupOf(const std::vector<std::uint32_t>& members) {
  const auto drops =
      With(Neighbour(102, 10), [](HostPtr host) { host->add_flags(encapsulation::ACTION_DROP); });
  return ObjectsOf({VlanOn(10), Neighbour(101, 10), drops, Ecmp(301, members)}).nexthops.at(301);
}

KernelNexthop Members(const GroupMembers& members) { return NexthopGroup{members}; }

TEST(TranslateGroupTest, ARepeatedMemberHasWeight) {
  EXPECT_TRUE(GroupOf({101, 10, 101, 101}) == Members({{10, 1}, {101, 3}}));
  EXPECT_TRUE(GroupOf(std::vector<std::uint32_t>(256, 101)) == Members({{101, 256}}));
}

TEST(TranslateGroupTest, MembersThatDropOrDoNotExistAreLeftOut) {
  EXPECT_TRUE(GroupOf({101, 102, 103}) == Members({{101, 1}}));
}

TEST(TranslateGroupTest, ToCpuIsAMember) {
  const KernelObjects objects = ObjectsOf({HostOn(101, 10), VlanOn(10), Ecmp(301, {101})});
  EXPECT_TRUE(objects.nexthops.at(301) == Members({{101, 1}}));
}

TEST(TranslateGroupTest, WithoutMembersItDrops) {
  EXPECT_TRUE(GroupOf({102}) == Members({{kDropNexthop, 1}}));
  KernelObjects expected;
  expected.nexthops = {{301, Members({{kDropNexthop, 1}})}, {kDropNexthop, BlackholeNexthop{}}};
  EXPECT_TRUE(ObjectsOf({Ecmp(301, {})}) == expected);
}

TEST(TranslateGroupTest, TheBlackholeGoesWithTheLastGroupThatDrops) {
  Translation translation = Translated({Ecmp(301, {}), Ecmp(302, {})});
  translation.Remove(HalKind::kEcmp, 301);
  EXPECT_EQ(translation.Objects().nexthops.count(kDropNexthop), 1);
  translation.Remove(HalKind::kEcmp, 302);
  EXPECT_TRUE(translation.Objects() == KernelObjects());
}

TEST(TranslateGroupTest, FollowsItsMembers) {
  Translation translation = Translated({VlanOn(10), Neighbour(101, 10), Ecmp(301, {101})});
  translation.Remove(HalKind::kVlan, 10);
  EXPECT_TRUE(translation.Objects().nexthops.at(301) == Members({{kDropNexthop, 1}}));
  EXPECT_EQ(AnyEntry(VlanOn(10)).StoreIn(&translation), kHalSuccess);
  EXPECT_TRUE(translation.Objects().nexthops.at(301) == Members({{101, 1}}));
}

// Refusals.

struct RefusalCase {
  const char* name;
  AnyEntry entry;
  HalReturnCode code;
  const char* reason = "";
};

/// VLAN destination 10, host 101, tunnel 201 with 10 labels below circuit 202 with 20, group 301.
Entries SomeEntries() {
  const auto labels = [](int count) {
    return [count](MplsPtr mpls) {
      mpls->clear_labels();
      for (int i = 0; i < count; ++i) mpls->add_labels(16);
    };
  };
  return {VlanOn(10), Neighbour(101, 10), With(Tunnel(201, 10, 1), labels(10)),
          With(Tunnel(202, 201, 1), labels(20)), Ecmp(301, {101, 202})};
}

class TranslateRefusalTest : public testing::TestWithParam<RefusalCase> {};

TEST_P(TranslateRefusalTest, ChangesNothing) {
  Translation translation = Translated(SomeEntries());
  const KernelObjects before = translation.Objects();
  EXPECT_EQ(GetParam().entry.StoreIn(&translation), GetParam().code);
  EXPECT_EQ(translation.reason(), GetParam().reason);
  EXPECT_TRUE(translation.Objects() == before);
}

encapsulation::VlanMessage VlanAlias(const std::string& alias) {
  return With(VlanOn(11), [&alias](VlanPtr vlan) { vlan->add_list_values(alias); });
}

INSTANTIATE_TEST_SUITE_P(
    Entries, TranslateRefusalTest,
    testing::Values(
        RefusalCase{"UnknownInterface", VlanOn(11, 999), kHalNoInterface,
                    "no interface has lim id 999"},
        RefusalCase{"InterfaceWithoutDevice", VlanOn(11, kEth2), kHalNoInterface,
                    "there is no device eth2"},
        RefusalCase{"SubinterfaceWithoutParent", VlanOn(11, 206), kHalNoInterface,
                    "there is no device eth2"},
        RefusalCase{"NoTag", VlanOn(11, 205), kHalNoInterface, "there is no device eth0."},
        RefusalCase{"TagZero", VlanOn(11, 201), kHalNoInterface, "there is no device eth0.0"},
        RefusalCase{"TagTooLarge", VlanOn(11, 202), kHalNoInterface,
                    "there is no device eth0.4095"},
        RefusalCase{"TagWithLeadingZero", VlanOn(11, 203), kHalNoInterface,
                    "there is no device eth0.020"},
        RefusalCase{"TagNotANumber", VlanOn(11, 204), kHalNoInterface, "there is no device eth0.x"},
        RefusalCase{"NoLimId", Vlan(11), kHalNoInterface, "the lim id is shorter than 4 bytes"},
        RefusalCase{"ShortLimId", With(VlanOn(11), [](VlanPtr vlan) { vlan->set_lim_id("abc"); }),
                    kHalNoInterface, "the lim id is shorter than 4 bytes"},
        RefusalCase{"ShortSourceMac",
                    With(VlanOn(11), [](VlanPtr vlan) { vlan->set_source_mac_address("abcde"); }),
                    kHalNotSupported, "a MAC address has 6 bytes, not 5"},
        RefusalCase{"MtuBelowIpv6s", With(VlanOn(11), [](VlanPtr vlan) { vlan->set_mtu(1279); }),
                    kHalNotSupported, "MTU 1279; IPv6 needs at least 1280"},
        RefusalCase{"VrfOfTheKernel", With(VlanOn(11), [](VlanPtr vlan) { vlan->set_vrf(254); }),
                    kHalNotSupported, "VRFs 253 to 255 are the kernel's own tables"},
        RefusalCase{"LongAlias", VlanAlias(std::string(256, 'a')), kHalNotSupported,
                    "256 bytes of list values, but at most 255 are possible"},
        RefusalCase{"AliasWithZeroByte", VlanAlias(std::string(1, '\0')), kHalNotSupported,
                    "a list value contains a zero byte"},
        RefusalCase{"ShortHostMac",
                    With(Neighbour(102, 10), [](HostPtr host) { host->set_dest_mac("abcde"); }),
                    kHalNotSupported, "a MAC address has 6 bytes, not 5"},
        RefusalCase{"ShortMplsMac",
                    With(Tunnel(203, 10, 1), [](MplsPtr mpls) { mpls->set_dest_mac("abcdefg"); }),
                    kHalNotSupported, "a MAC address has 6 bytes, not 7"},
        RefusalCase{
            "TooManyLabels",
            With(Tunnel(203, 10, 1),
                 [](MplsPtr mpls) {
                   for (int i = 0; i < 30; ++i) mpls->add_labels(1);
                 }),
            kHalNotSupported,
            "destination 203 would have more than 30 labels, or ride on more than 30 tunnels"},
        RefusalCase{
            "TooManyLabelsWithTheTunnels", Tunnel(203, 202, 1), kHalNotSupported,
            "destination 203 would have more than 30 labels, or ride on more than 30 tunnels"},
        RefusalCase{
            "TooManyLabelsForACircuitOnIt",
            With(Tunnel(201, 10, 1),
                 [](MplsPtr mpls) {
                   for (int i = 0; i < 10; ++i) mpls->add_labels(1);
                 }),
            kHalNotSupported,
            "destination 202 would have more than 30 labels, or ride on more than 30 tunnels"},
        RefusalCase{
            "RingOfTunnels", With(Tunnel(201, 202, 1), [](MplsPtr mpls) { mpls->clear_labels(); }),
            kHalNotSupported,
            "destination 202 would have more than 30 labels, or ride on more than 30 tunnels"},
        RefusalCase{"TooMuchWeight", Ecmp(302, std::vector<std::uint32_t>(257, 101)),
                    kHalNotSupported, "member 101 is listed more than 256 times"},
        RefusalCase{"ReservedId", VlanOn(kDropNexthop), kHalNotSupported,
                    "the id is that of a blackhole"},
        RefusalCase{"IdOfAnotherKind", Neighbour(10, 10), kHalExists}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(TranslateRefusalTest, TooManyMembers) {
  std::vector<std::uint32_t> members(kMaxMembers + 1);
  for (std::size_t i = 0; i < members.size(); ++i) members[i] = static_cast<std::uint32_t>(i + 1);
  Translation translation(Interfaces(), Devices());
  EXPECT_EQ(AnyEntry(Ecmp(10'001, members)).StoreIn(&translation), kHalNotSupported);
  EXPECT_EQ(translation.reason(), "8192 members, but at most 8191 are possible");
  members.pop_back();
  EXPECT_EQ(AnyEntry(Ecmp(10'001, members)).StoreIn(&translation), kHalSuccess);
}

TEST(TranslateRefusalTest, ARingWithoutLabelsEnds) {
  Translation translation(Interfaces(), Devices());
  const auto unlabelled = With(Tunnel(201, 201, 1), [](MplsPtr mpls) { mpls->clear_labels(); });
  EXPECT_EQ(AnyEntry(unlabelled).StoreIn(&translation), kHalNotSupported);
  EXPECT_TRUE(translation.Objects() == KernelObjects());
}

TEST(TranslationTest, RemovingAMissingEntryIsANoOp) {
  Translation translation = Translated(SomeEntries());
  const KernelObjects before = translation.Objects();
  translation.Remove(HalKind::kVlan, 99);
  translation.Remove(HalKind::kHost, 10);
  translation.Remove(HalKind::kVrf, 7);
  EXPECT_TRUE(translation.Objects() == before);
}

// Incremental changes.

TEST(TranslationTest, TakesOnlyWhatAChangeAffects) {
  Translation translation = Translated(SomeEntries());
  translation.Take();
  EXPECT_TRUE(translation.Take().after == KernelObjects());
  EXPECT_EQ(AnyEntry(Tunnel(201, 10, 5)).StoreIn(&translation), kHalSuccess);
  const Transition transition = translation.Take();
  std::vector<std::uint32_t> ids;
  for (const auto& [id, nexthop] : transition.after.nexthops) ids.push_back(id);
  EXPECT_EQ(ids, (std::vector<std::uint32_t>{201, 202, 301}));
  EXPECT_TRUE(transition.after.devices.empty());
  EXPECT_EQ(Difference(transition.before, transition.after).size(), 2);
}

TEST(TranslationTest, WhatAnEntryNoLongerRefersToDoesNotAffectIt) {
  Translation translation =
      Translated({VlanOn(10), VlanOn(11), Neighbour(101, 10), Ecmp(301, {10, 101})});
  EXPECT_EQ(AnyEntry(Neighbour(101, 11)).StoreIn(&translation), kHalSuccess);
  EXPECT_EQ(AnyEntry(Ecmp(301, {101})).StoreIn(&translation), kHalSuccess);
  translation.Take();
  EXPECT_EQ(AnyEntry(VlanOn(10, kEth1)).StoreIn(&translation), kHalSuccess);
  EXPECT_EQ(translation.Take().after.nexthops.size(), 1);
}

TEST(TranslationTest, ARefusedEntryNeedsNoChange) {
  Translation translation = Translated(SomeEntries());
  translation.Take();
  EXPECT_EQ(AnyEntry(Tunnel(201, 202, 1)).StoreIn(&translation), kHalNotSupported);
  const Transition transition = translation.Take();
  EXPECT_TRUE(Difference(transition.before, transition.after).empty());
}

TEST(TranslationTest, PutsBackWhatTheKernelHas) {
  Translation translation = Translated({VlanOn(10)});
  const Transition lost = translation.Take();
  // The kernel has refused everything.
  translation.PutBack(lost);
  Transition again = translation.Take();
  EXPECT_TRUE(again.before == KernelObjects());
  EXPECT_TRUE(again.after == VlanObjects());
  // The kernel has an object that no entry wants.
  KernelObjects left;
  left.nexthops = {{99, BlackholeNexthop{}}};
  translation.PutBack({left, {}});
  again = translation.Take();
  EXPECT_TRUE(again.before == left);
  EXPECT_TRUE(again.after == KernelObjects());
}

/// Random entries with few ids, so that they depend on each other and collide.
class AnyEntries {
 public:
  explicit AnyEntries(std::uint32_t seed) : random_(seed) {}

  std::uint32_t Below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }

  AnyEntry Next() {
    switch (Below(9)) {
      case 0:
        return Vrf(1 + Below(2));
      case 1:
      case 2: {
        const std::uint32_t lims[] = {kEth0, kEth1, kEth1Tag20};
        auto vlan = VlanOn(1 + Below(3), lims[Below(3)]);
        vlan.set_vrf(Below(3));
        vlan.set_mtu(Below(2) * 1400);
        if (Below(3) == 0) vlan.clear_source_mac_address();
        return vlan;
      }
      case 3:
      case 4: {
        auto host = HostOn(4 + Below(3), 1 + Below(3));
        if (Below(4) != 0) host.set_dest_mac(Below(2) == 0 ? kMacBytes : kOtherMacBytes);
        if (Below(5) == 0) host.add_flags(encapsulation::ACTION_DROP);
        return host;
      }
      case 5:
      case 6: {
        // It may ride on itself.
        auto mpls = MplsOn(7 + Below(4), Below(2) == 0 ? 1 + Below(3) : 7 + Below(4));
        if (Below(3) != 0) mpls.set_dest_mac(kMacBytes);
        for (std::uint32_t i = Below(3) * 7; i != 0; --i) mpls.add_labels(Below(3));
        if (Below(5) == 0) mpls.set_flag(encapsulation::ACTION_DROP);
        return mpls;
      }
      default: {
        std::vector<std::uint32_t> members(Below(5));
        for (std::uint32_t& member : members) member = 1 + Below(10);
        return Ecmp(10 + Below(4), members);
      }
    }
  }

 private:
  std::mt19937 random_;
};

TEST(TranslationTest, IncrementalEqualsFromScratchAndTheKernelFollows) {
  for (std::uint32_t seed = 1; seed <= 20; ++seed) {
    AnyEntries random(seed);
    Translation translation(Interfaces(), Devices());
    ModelKernel kernel(Devices());
    std::map<std::pair<HalKind, std::uint32_t>, AnyEntry> entries;
    for (int step = 0; step < 200; ++step) {
      const AnyEntry entry = random.Next();
      const std::pair key(entry.kind, entry.id);
      if (random.Below(4) == 0) {
        translation.Remove(entry.kind, entry.id);
        entries.erase(key);
      } else if (entry.StoreIn(&translation) == kHalSuccess) {
        entries.insert_or_assign(key, entry);
      }
      // A batch may have several changes.
      if (random.Below(2) == 0) continue;
      const Transition transition = translation.Take();
      ASSERT_EQ(WriteAll(Difference(transition.before, transition.after), &kernel), std::nullopt)
          << "seed " << seed << ", step " << step;
      ASSERT_TRUE(kernel.objects() == translation.Objects()) << "seed " << seed;
      Entries all;
      for (const auto& [id, one] : entries) all.push_back(one);
      ASSERT_TRUE(ObjectsOf(all) == translation.Objects()) << "seed " << seed << ", step " << step;
    }
  }
}

}  // namespace
}  // namespace reference
