/// The changes between two states of the kernel: their order, and what stays in between.

#include "reference/data_plane/difference.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "tests/data_plane/model_kernel.h"

namespace reference {
namespace {

constexpr int kPairs = 10'000;

const std::set<std::string>& ForeignDevices() {
  static const std::set<std::string> devices = {"eth0", "eth1"};
  return devices;
}

MacAddress Mac(std::uint8_t last) { return {2, 0, 0, 0, 0, last}; }

MacvlanDevice On(const std::string& parent, std::uint8_t mac = 1, const std::string& master = "") {
  MacvlanDevice device;
  device.parent = parent;
  device.address = Mac(mac);
  device.master = master;
  return device;
}

DeviceNexthop Via(const std::string& device, std::uint32_t id) {
  return {device, NeighbourAddress(id), {}};
}

/// A random state that the kernel can be in. Ids and devices are few, so that most states overlap.
class AnyState {
 public:
  explicit AnyState(std::mt19937* random) : random_(*random) {
    AddDevices();
    AddNexthops();
    AddGroups();
  }

  const KernelObjects& objects() const { return objects_; }

 private:
  std::uint32_t Below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }
  bool Often() { return Below(3) != 0; }

  void AddDevices() {
    for (const std::uint32_t vrf : {1U, 2U}) {
      if (Often()) objects_.devices[VrfDeviceName(vrf)] = VrfDevice{vrf};
    }
    if (Often()) objects_.devices["zcpu"] = DummyDevice{};
    // The tag varies, so that the device may have to be recreated.
    const auto tag = static_cast<std::uint16_t>(20 + Below(2));
    if (Often()) objects_.devices["eth0.20"] = TaggedDevice{"eth0", tag};
    std::vector<std::string> parents = {"eth0", "eth1"};
    if (objects_.devices.count("eth0.20") != 0) parents.emplace_back("eth0.20");
    for (std::uint32_t id = 1; id <= 4; ++id) {
      if (!Often()) continue;
      MacvlanDevice device = On(parents[Below(static_cast<std::uint32_t>(parents.size()))],
                                static_cast<std::uint8_t>(Below(2)));
      const std::string master = VrfDeviceName(Below(4));
      if (objects_.devices.count(master) != 0) device.master = master;
      device.mtu = Below(2) * 1400;
      device.forwarding = Below(2) == 1;
      device.alias = std::string(Below(2), 'a');
      objects_.devices[DestinationDevice(id)] = device;
      macvlans_.push_back(DestinationDevice(id));
    }
  }

  void AddNexthops() {
    for (std::uint32_t id = 1; id <= 8; ++id) {
      if (!Often()) continue;
      if (macvlans_.empty() || Below(4) == 0) {
        objects_.nexthops[id] = BlackholeNexthop{};
        continue;
      }
      const std::string& device = macvlans_[Below(static_cast<std::uint32_t>(macvlans_.size()))];
      DeviceNexthop nexthop{device, {}, std::vector<std::uint32_t>(Below(3), 100 + Below(2))};
      if (Often()) {
        nexthop.gateway = NeighbourAddress(id);
        objects_.neighbours[{device, nexthop.gateway}] = Mac(static_cast<std::uint8_t>(Below(2)));
      }
      objects_.nexthops[id] = nexthop;
      forwarding_.push_back(id);
    }
  }

  // 7 and 8 may also be single next hops, in this state or in the other.
  void AddGroups() {
    for (std::uint32_t id = 7; id <= 12; ++id) {
      if (!Often() || objects_.nexthops.count(id) != 0) continue;
      NexthopGroup group;
      for (const std::uint32_t member : forwarding_) {
        if (Below(2) == 0) group.members.emplace_back(member, 1 + Below(2));
      }
      if (group.members.empty()) {
        objects_.nexthops[kDropNexthop] = BlackholeNexthop{};
        group.members.emplace_back(kDropNexthop, 1);
      }
      objects_.nexthops[id] = group;
    }
  }

  std::mt19937& random_;
  KernelObjects objects_;
  std::vector<std::string> macvlans_;
  std::vector<std::uint32_t> forwarding_;
};

bool SameDevice(const KernelObjects& a, const KernelObjects& b, const std::string& name) {
  const auto in_a = a.devices.find(name);
  const auto in_b = b.devices.find(name);
  if (in_a == a.devices.end() || in_b == b.devices.end()) return false;
  const auto* const macvlan_a = std::get_if<MacvlanDevice>(&in_a->second);
  const auto* const macvlan_b = std::get_if<MacvlanDevice>(&in_b->second);
  if (macvlan_a == nullptr || macvlan_b == nullptr) return in_a->second == in_b->second;
  if (macvlan_a->parent != macvlan_b->parent || macvlan_a->master != macvlan_b->master) {
    return false;
  }
  const bool foreign = ForeignDevices().count(macvlan_a->parent) != 0;
  return foreign || SameDevice(a, b, macvlan_a->parent);
}

bool IsGroup(const KernelNexthop& nexthop) { return std::holds_alternative<NexthopGroup>(nexthop); }

/// What must stay in place between two states.
struct MustStay {
  MustStay(const KernelObjects& a, const KernelObjects& b) {
    for (const auto& [name, device] : a.devices) {
      if (SameDevice(a, b, name)) devices.insert(name);
    }
    for (const auto& [key, address] : a.neighbours) {
      if (b.neighbours.count(key) == 0 || devices.count(key.first) == 0) continue;
      if (HasNewAddress(a.devices.at(key.first), b.devices.at(key.first))) continue;
      neighbours.insert(key);
    }
    for (const auto& [id, nexthop] : a.nexthops) {
      const auto other = b.nexthops.find(id);
      if (other == b.nexthops.end() || IsGroup(nexthop) != IsGroup(other->second)) continue;
      nexthops.insert(id);
      // If neither the next hop nor its device changes, it must never stop forwarding.
      const auto* const out = std::get_if<DeviceNexthop>(&nexthop);
      if (out != nullptr && nexthop == other->second && devices.count(out->device) != 0) {
        unchanged[id] = *out;
      }
    }
  }

  void Check(const KernelObjects& objects) const {
    for (const std::string& name : devices) EXPECT_EQ(objects.devices.count(name), 1) << name;
    for (const NeighbourKey& key : neighbours) EXPECT_EQ(objects.neighbours.count(key), 1);
    for (const std::uint32_t id : nexthops) EXPECT_EQ(objects.nexthops.count(id), 1) << id;
    for (const auto& [id, nexthop] : unchanged) {
      EXPECT_TRUE(objects.nexthops.at(id) == KernelNexthop(nexthop)) << id;
    }
  }

  std::set<std::string> devices;
  std::set<NeighbourKey> neighbours;
  std::set<std::uint32_t> nexthops;
  std::map<std::uint32_t, DeviceNexthop> unchanged;
};

TEST(DifferenceTest, LeadsFromAnyStateToAnyOtherMakeBeforeBreak) {
  std::mt19937 random(1);
  for (int i = 0; i < kPairs && !HasFailure(); ++i) {
    const KernelObjects before = AnyState(&random).objects();
    const KernelObjects after = AnyState(&random).objects();
    ModelKernel kernel(ForeignDevices());
    ASSERT_EQ(WriteAll(Difference({}, before), &kernel), std::nullopt) << "pair " << i;
    ASSERT_TRUE(kernel.objects() == before) << "pair " << i;
    const MustStay must_stay(before, after);
    for (const KernelChange& change : Difference(before, after)) {
      ASSERT_EQ(kernel.Write(change), std::nullopt) << "pair " << i;
      must_stay.Check(kernel.objects());
    }
    EXPECT_TRUE(kernel.objects() == after) << "pair " << i;
  }
}

TEST(DifferenceTest, EqualStatesNeedNoChange) {
  std::mt19937 random(2);
  for (int i = 0; i < 100; ++i) {
    const KernelObjects state = AnyState(&random).objects();
    EXPECT_TRUE(Difference(state, state).empty());
  }
}

/// zd1 on eth0 with neighbour 101, a next hop out of each, and a group of the two next hops.
KernelObjects SmallState() {
  KernelObjects state;
  state.devices = {{"zd1", On("eth0")}};
  state.neighbours = {{{"zd1", NeighbourAddress(101)}, Mac(9)}};
  state.nexthops = {{1, DeviceNexthop{"zd1", {}, {}}},
                    {101, Via("zd1", 101)},
                    {301, NexthopGroup{{{1, 1}, {101, 3}}}}};
  return state;
}

/// The changes in short: "+zd1", "-101".
struct ShortText {
  std::string operator()(const PutDevice& put) const { return '+' + put.name; }
  std::string operator()(const RemoveDevice& removed) const { return '-' + removed.name; }
  std::string operator()(const PutNeighbour& put) const { return "+neighbour " + put.key.first; }
  std::string operator()(const RemoveNeighbour& removed) const {
    return "-neighbour " + removed.key.first;
  }
  std::string operator()(const PutNexthop& put) const {
    const bool drops = std::holds_alternative<BlackholeNexthop>(put.nexthop);
    return (drops ? "drop " : "+") + std::to_string(put.id);
  }
  std::string operator()(const RemoveNexthop& removed) const {
    return '-' + std::to_string(removed.id);
  }
};

std::vector<std::string> ShortDifference(const KernelObjects& before, const KernelObjects& after) {
  std::vector<std::string> texts;
  for (const KernelChange& change : Difference(before, after)) {
    texts.push_back(std::visit(ShortText(), change));
  }
  return texts;
}

using Texts = std::vector<std::string>;

TEST(DifferenceTest, BuildsFromBelowAndRemovesFromAbove) {
  EXPECT_EQ(ShortDifference({}, SmallState()),
            (Texts{"+zd1", "+neighbour zd1", "+1", "+101", "+301"}));
  EXPECT_EQ(ShortDifference(SmallState(), {}),
            (Texts{"-301", "-1", "-101", "-neighbour zd1", "-zd1"}));
}

TEST(DifferenceTest, AMemberDropsAfterItsGroupAndComesBackBeforeIt) {
  KernelObjects dropping = SmallState();
  dropping.neighbours.clear();
  dropping.nexthops[101] = BlackholeNexthop{};
  dropping.nexthops[301] = NexthopGroup{{{1, 1}}};
  EXPECT_EQ(ShortDifference(SmallState(), dropping), (Texts{"+301", "drop 101", "-neighbour zd1"}));
  EXPECT_EQ(ShortDifference(dropping, SmallState()), (Texts{"+neighbour zd1", "+101", "+301"}));
}

TEST(DifferenceTest, AChangedDeviceKeepsWhatIsOnIt) {
  KernelObjects changed = SmallState();
  std::get<MacvlanDevice>(changed.devices["zd1"]).mtu = 1400;
  EXPECT_EQ(ShortDifference(SmallState(), changed), (Texts{"+zd1"}));
}

TEST(DifferenceTest, ANewMacAddressFlushesTheNeighboursWhichAreAddedAgain) {
  KernelObjects changed = SmallState();
  changed.devices["zd1"] = On("eth0", 2);
  EXPECT_EQ(ShortDifference(SmallState(), changed), (Texts{"+zd1", "+neighbour zd1"}));
}

TEST(DifferenceTest, ARecreatedDeviceKeepsItsNexthops) {
  KernelObjects changed = SmallState();
  changed.devices["zd1"] = On("eth1");
  const Texts texts = {
      "drop 4294967295", "+301", "drop 1", "drop 101", "-neighbour zd1", "-zd1", "+zd1",
      "+neighbour zd1",  "+1",   "+101",   "+301",     "-4294967295"};
  EXPECT_EQ(ShortDifference(SmallState(), changed), texts);
}

TEST(DifferenceTest, ANewGroupWaitsForItsMembers) {
  KernelObjects before = SmallState();
  before.nexthops.erase(301);
  KernelObjects after = SmallState();
  after.devices["zd1"] = On("eth1");
  const Texts texts = {"drop 1",         "drop 101", "-neighbour zd1", "-zd1", "+zd1",
                       "+neighbour zd1", "+1",       "+101",           "+301"};
  EXPECT_EQ(ShortDifference(before, after), texts);
}

TEST(DifferenceTest, RecreatingADeviceRecreatesTheDevicesOnIt) {
  KernelObjects before;
  before.devices = {{"eth0.20", TaggedDevice{"eth0", 20}}, {"zd1", On("eth0.20")}};
  KernelObjects after = before;
  after.devices["eth0.20"] = TaggedDevice{"eth0", 21};
  EXPECT_EQ(ShortDifference(before, after), (Texts{"-zd1", "-eth0.20", "+eth0.20", "+zd1"}));
}

TEST(DifferenceTest, ADeviceThatJoinsAVrfIsRecreated) {
  KernelObjects before = SmallState();
  before.nexthops = {{1, DeviceNexthop{"zd1", {}, {}}}};
  before.neighbours.clear();
  KernelObjects after = before;
  after.devices = {{"zd1", On("eth0", 1, "zv7")}, {"zv7", VrfDevice{7}}};
  EXPECT_EQ(ShortDifference(before, after), (Texts{"+zv7", "drop 1", "-zd1", "+zd1", "+1"}));
}

TEST(DifferenceTest, ANexthopThatBecomesAGroupIsRemovedAndAdded) {
  KernelObjects after = SmallState();
  after.nexthops[101] = NexthopGroup{{{1, 1}}};
  after.nexthops[301] = NexthopGroup{{{1, 1}}};
  after.neighbours.clear();
  EXPECT_EQ(ShortDifference(SmallState(), after),
            (Texts{"+301", "-101", "-neighbour zd1", "+101"}));
}

TEST(DifferenceTest, LeavesAloneWhatIsInNeitherState) {
  // A subset of the objects: it lacks the group's other member and the device.
  KernelObjects before;
  before.nexthops = {{101, Via("zd1", 101)}, {301, NexthopGroup{{{1, 1}, {101, 3}}}}};
  KernelObjects after;
  after.nexthops = {{301, NexthopGroup{{{1, 1}}}}};
  EXPECT_EQ(ShortDifference(before, after), (Texts{"+301", "-101"}));
}

}  // namespace
}  // namespace reference
