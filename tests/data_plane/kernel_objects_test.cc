/// Kernel objects as values: names, addresses, and the effect of each change.

#include "reference/data_plane/kernel_objects.h"

#include <gtest/gtest.h>

#include <string>

namespace reference {
namespace {

constexpr MacAddress kMac = {2, 0, 0, 0, 0, 1};
constexpr MacAddress kOtherMac = {2, 0, 0, 0, 0, 2};

MacvlanDevice On(const std::string& parent) {
  MacvlanDevice device;
  device.parent = parent;
  device.address = kMac;
  return device;
}

DeviceNexthop Via(const std::string& device, std::uint32_t id) {
  return {device, NeighbourAddress(id), {}};
}

/// zd10 on eth0.20, which is on eth0, with neighbour 101; a group of 10 and 101, one of 101 alone,
/// and a blackhole.
KernelObjects SmallKernel() {
  KernelObjects objects;
  objects.devices = {{"eth0.20", TaggedDevice{"eth0", 20}}, {"zd10", On("eth0.20")}};
  objects.neighbours = {{{"zd10", NeighbourAddress(101)}, kMac}};
  objects.nexthops = {{10, DeviceNexthop{"zd10", {}, {}}},
                      {101, Via("zd10", 101)},
                      {102, BlackholeNexthop{}},
                      {301, NexthopGroup{{{10, 1}, {101, 2}}}},
                      {302, NexthopGroup{{{101, 1}}}}};
  return objects;
}

KernelObjects After(const KernelChange& change) {
  KernelObjects objects = SmallKernel();
  Apply(change, &objects);
  return objects;
}

TEST(KernelObjectsTest, NamesAndAddressesContainTheId) {
  EXPECT_EQ(DestinationDevice(4294967295), "zd4294967295");
  EXPECT_EQ(VrfDeviceName(7), "zv7");
  // fe80::6501:203
  EXPECT_EQ(NeighbourAddress(0x65010203),
            (Ipv6Address{0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x65, 1, 2, 3}));
}

TEST(KernelObjectsTest, PuttingAddsOrReplaces) {
  KernelObjects expected = SmallKernel();
  expected.nexthops[102] = Via("zd10", 102);
  EXPECT_EQ(After(PutNexthop{102, Via("zd10", 102)}), expected);

  expected = SmallKernel();
  expected.nexthops[103] = BlackholeNexthop{};
  EXPECT_EQ(After(PutNexthop{103, BlackholeNexthop{}}), expected);

  expected = SmallKernel();
  expected.neighbours[{"zd10", NeighbourAddress(101)}] = kOtherMac;
  EXPECT_EQ(After(PutNeighbour{{"zd10", NeighbourAddress(101)}, kOtherMac}), expected);

  expected = SmallKernel();
  expected.devices["zcpu"] = DummyDevice{};
  EXPECT_EQ(After(PutDevice{"zcpu", DummyDevice{}, {}}), expected);
}

TEST(KernelObjectsTest, ADeviceKeepsItsNeighboursUnlessItsAddressChanges) {
  MacvlanDevice device = On("eth0.20");
  device.mtu = 1400;
  KernelObjects expected = SmallKernel();
  expected.devices["zd10"] = device;
  EXPECT_EQ(After(PutDevice{"zd10", device, On("eth0.20")}), expected);

  device.address = kOtherMac;
  expected.devices["zd10"] = device;
  expected.neighbours.clear();
  EXPECT_EQ(After(PutDevice{"zd10", device, On("eth0.20")}), expected);
}

TEST(KernelObjectsTest, ARemovedNexthopLeavesItsGroupsAndTakesTheEmptyOnesAlong) {
  KernelObjects expected = SmallKernel();
  expected.nexthops = {{10, DeviceNexthop{"zd10", {}, {}}},
                       {102, BlackholeNexthop{}},
                       {301, NexthopGroup{{{10, 1}}}}};
  EXPECT_EQ(After(RemoveNexthop{101}), expected);
}

TEST(KernelObjectsTest, ARemovedNeighbourLeavesTheNexthop) {
  KernelObjects expected = SmallKernel();
  expected.neighbours.clear();
  EXPECT_EQ(After(RemoveNeighbour{{"zd10", NeighbourAddress(101)}}), expected);
}

TEST(KernelObjectsTest, ARemovedDeviceTakesEverythingOnItAlong) {
  KernelObjects expected;
  expected.nexthops = {{102, BlackholeNexthop{}}};
  EXPECT_EQ(After(RemoveDevice{"eth0.20"}), expected);
}

}  // namespace
}  // namespace reference
