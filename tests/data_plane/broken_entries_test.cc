/// Which entries suffer when kernel objects are missing, and what is named as the cause.

#include "reference/data_plane/broken_entries.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "reference/data_plane/comparison.h"
#include "tests/hal/messages.h"

namespace reference {
namespace {

using testing::ElementsAreArray;

encapsulation::VlanMessage VlanOn(std::uint32_t id, std::uint32_t lim, std::uint32_t vrf) {
  encapsulation::VlanMessage vlan = Vlan(id);
  std::string bytes(sizeof lim, '\0');
  std::memcpy(bytes.data(), &lim, sizeof lim);
  vlan.set_lim_id(bytes);
  if (vrf != 0) vlan.set_vrf(vrf);
  return vlan;
}

encapsulation::HostMessage Neighbour(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host = HostOn(id, vlan);
  host.set_dest_mac("\x02\x02\x02\x02\x02\x02");
  return host;
}

using Mtus = std::map<std::string, std::uint32_t>;

struct Loss {
  const char* name;
  // Takes objects away, and adds refusals.
  std::function<void(KernelObjects* present, Mtus* mtus, RefusedObjects* refused)> lose;
  // "host 20: 9 no memory".
  std::vector<std::string> broken;
};

class BrokenEntriesTest : public testing::TestWithParam<Loss> {};

INSTANTIATE_TEST_SUITE_P(
    Losses, BrokenEntriesTest,
    testing::Values(
        Loss{"Nothing", [](auto*, auto*, auto*) {}, {}},
        Loss{"ANextHop",
             [](auto* present, auto*, auto* refused) {
               present->nexthops.erase(20);
               refused->nexthops[20] = "no memory";
             },
             {"host 20: 9 no memory"}},
        Loss{"ANextHopThatWasNotTried",
             [](auto* present, auto*, auto*) { present->nexthops.erase(20); },
             {"host 20: 9 "}},
        Loss{"ANeighbour",
             [](auto* present, auto*, auto* refused) {
               present->neighbours.clear();
               refused->neighbours[{"zd10", NeighbourAddress(20)}] = "table full";
             },
             {"host 20: 9 table full"}},
        Loss{"AGroup",
             [](auto* present, auto*, auto* refused) {
               present->nexthops[30] = BlackholeNexthop{};
               refused->nexthops[30] = "invalid id";
             },
             {"ecmp 30: 9 invalid id"}},
        Loss{"ADevice",
             [](auto* present, auto*, auto* refused) {
               present->devices.erase("zd10");
               refused->devices["zd10"] = "the device zd10 disappeared";
             },
             {"vlan 10: 9 the device zd10 disappeared", "host 20: 9 the device zd10 disappeared"}},
        Loss{"TheDeviceBelow",
             [](auto* present, auto* mtus, auto* refused) {
               present->devices.erase("zd10");
               mtus->erase("eth0");
               refused->devices["zd10"] = "there is no device eth0";
             },
             {"vlan 10: 7 there is no device eth0", "host 20: 7 there is no device eth0"}},
        Loss{"TheDeviceBelowATaggedOne",
             [](auto* present, auto* mtus, auto*) {
               present->devices.erase("zd11");
               present->devices.erase("eth1.20");
               mtus->erase("eth1");
             },
             {"vlan 11: 7 there is no device eth1"}},
        Loss{"AVrf",
             [](auto* present, auto*, auto* refused) {
               present->devices.erase("zv5");
               refused->devices["zv5"] = "not supported";
             },
             {"vrf 5: 9 not supported"}}),
    [](const auto& test) { return test.param.name; });

TEST_P(BrokenEntriesTest, AreNamedWithTheCause) {
  Translation translation({{1, "eth0"}, {2, "eth1.20"}}, {"eth0", "eth1"});
  EXPECT_EQ(translation.Store(HalKind::kVrf, 5, Vrf(5)), kHalSuccess);
  EXPECT_EQ(translation.Store(HalKind::kVlan, 10, VlanOn(10, 1, 0)), kHalSuccess);
  EXPECT_EQ(translation.Store(HalKind::kVlan, 11, VlanOn(11, 2, 0)), kHalSuccess);
  EXPECT_EQ(translation.Store(HalKind::kHost, 20, Neighbour(20, 10)), kHalSuccess);
  EXPECT_EQ(translation.Store(HalKind::kEcmp, 30, Ecmp(30, {20, 11})), kHalSuccess);
  Mtus mtus = {{"eth0", 1500}, {"eth1", 1500}};
  const KernelObjects wanted = translation.Objects();
  KernelObjects present = wanted;
  RefusedObjects refused;
  GetParam().lose(&present, &mtus, &refused);

  std::vector<std::string> broken;
  for (const HalObjectState& state : BrokenEntries(translation, wanted, present, mtus, refused)) {
    broken.push_back(std::string(HalKindName(state.kind)) + ' ' + std::to_string(state.id) + ": " +
                     std::to_string(static_cast<std::uint32_t>(state.code)) + ' ' + state.reason);
  }
  EXPECT_THAT(broken, ElementsAreArray(GetParam().broken));
}

TEST(RefusedObjectsTest, TakesTheTextsOfAdditions) {
  RefusedObjects refused;
  refused.Add(PutDevice{"zd10", DummyDevice{}, std::nullopt}, "a");
  refused.Add(PutNeighbour{{"zd10", NeighbourAddress(20)}, {}}, "b");
  refused.Add(PutNexthop{20, BlackholeNexthop{}}, "c");
  refused.Add(RemoveNexthop{21}, "d");
  EXPECT_EQ(refused.devices, (std::map<std::string, std::string>{{"zd10", "a"}}));
  EXPECT_EQ(refused.neighbours.size(), 1U);
  EXPECT_EQ(refused.nexthops, (std::map<std::uint32_t, std::string>{{20, "c"}}));
}

}  // namespace
}  // namespace reference
