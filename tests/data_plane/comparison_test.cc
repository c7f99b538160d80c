/// The comparison of the wanted objects with those in the kernel.

#include "reference/data_plane/comparison.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace reference {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

MacvlanDevice Macvlan(std::uint32_t mtu) {
  MacvlanDevice device;
  device.parent = "eth0";
  device.mtu = mtu;
  return device;
}

KernelObjects SmallKernel() {
  KernelObjects objects;
  objects.devices = {{"zd10", Macvlan(1400)}, {"zcpu", DummyDevice{}}};
  objects.neighbours = {{{"zd10", NeighbourAddress(101)}, {}}};
  objects.nexthops = {{10, DeviceNexthop{"zd10", {}, {}}},
                      {101, DeviceNexthop{"zd10", NeighbourAddress(101), {}}},
                      {102, BlackholeNexthop{}}};
  return objects;
}

TEST(ComparisonTest, AgreesWithItself) {
  const ObjectStates states = Compare(SmallKernel(), SmallKernel(), {});
  EXPECT_EQ(states.size(), 6);
  for (const auto& [name, state] : states) EXPECT_EQ(state, ObjectState::kAsWanted) << name;
}

TEST(ComparisonTest, NamesWhatDiffers) {
  KernelObjects present = SmallKernel();
  present.devices["zd10"] = Macvlan(1500);
  present.devices.erase("zcpu");
  present.neighbours.clear();
  present.nexthops[102] = DeviceNexthop{"zd10", {}, {}};
  present.nexthops[103] = BlackholeNexthop{};
  EXPECT_EQ(Compare(SmallKernel(), present, {}),
            (ObjectStates{{"zd10", ObjectState::kDifferent},
                          {"zcpu", ObjectState::kMissing},
                          {"neighbour fe80::65 on zd10", ObjectState::kMissing},
                          {"next hop 10", ObjectState::kAsWanted},
                          {"next hop 101", ObjectState::kAsWanted},
                          {"next hop 102", ObjectState::kDifferent},
                          {"next hop 103", ObjectState::kNotWanted}}));
}

TEST(ComparisonTest, ADeviceWithoutAWantedMtuHasItsParents) {
  KernelObjects wanted;
  wanted.devices = {{"zd10", Macvlan(0)}};
  KernelObjects present;
  present.devices = {{"zd10", Macvlan(9000)}};
  EXPECT_EQ(Compare(wanted, present, {{"eth0", 9000}}),
            (ObjectStates{{"zd10", ObjectState::kAsWanted}}));
  EXPECT_EQ(Compare(wanted, present, {{"eth0", 1500}}),
            (ObjectStates{{"zd10", ObjectState::kDifferent}}));
  EXPECT_EQ(Compare(wanted, present, {}), (ObjectStates{{"zd10", ObjectState::kDifferent}}));
}

TEST(ComparisonTest, KnowsADestinationsObjects) {
  EXPECT_THAT(ObjectsOfDestination(10, SmallKernel()), ElementsAre("next hop 10", "zd10"));
  EXPECT_THAT(ObjectsOfDestination(101, SmallKernel()),
              ElementsAre("next hop 101", "zd10", "neighbour fe80::65 on zd10"));
  EXPECT_THAT(ObjectsOfDestination(102, SmallKernel()), ElementsAre("next hop 102"));
  EXPECT_THAT(ObjectsOfDestination(103, SmallKernel()), IsEmpty());
}

TEST(ComparisonTest, StatesHaveTexts) {
  EXPECT_EQ(ObjectStateText(ObjectState::kAsWanted), "as wanted");
  EXPECT_EQ(ObjectStateText(ObjectState::kMissing), "missing");
  EXPECT_EQ(ObjectStateText(ObjectState::kDifferent), "different");
  EXPECT_EQ(ObjectStateText(ObjectState::kNotWanted), "not wanted");
}

}  // namespace
}  // namespace reference
