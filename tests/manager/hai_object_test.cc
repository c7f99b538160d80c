// What the manager reads from the library's objects.

#include "reference/manager/engine/hai_object.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reference/site/site.h"
#include "tests/manager/sites.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr Mac kMac = {2, 0, 0, 0, 0, 1};
constexpr std::uint32_t kLim = 0x01020304;

SiteVlan FullVlan() {
  SiteVlan vlan = VlanEntry(10);
  vlan.lim_id = kLim;
  vlan.source_mac = kMac;
  vlan.vrf = 7;
  vlan.list_values = {"a", "b"};
  return vlan;
}

SiteHost FullHost() {
  SiteHost host = HostEntry(20, 10);
  host.lim_id = kLim;
  host.mac = kMac;
  host.ip_address = "\x0A\x01\x01\x01";
  return host;
}

SiteMpls FullTunnel() {
  SiteMpls tunnel = TunnelEntry(30, 10, 20);
  tunnel.lim_id = kLim;
  tunnel.mac = kMac;
  tunnel.label = 100;
  return tunnel;
}

// Makes the object of an entry after a change of it.
template <typename Entry, typename Change>
HaiObject Changed(Entry entry, Change change) {
  change(&entry);
  return MakeHaiObject(entry);
}

template <typename Entry>
HaiObject Unchanged(const Entry& entry) {
  return MakeHaiObject(entry);
}

TEST(SameContentTest, ObjectsOfEqualEntriesAreTheSame) {
  EXPECT_TRUE(SameContent(Unchanged(VrfEntry(1, 7)), Unchanged(VrfEntry(1, 7))));
  EXPECT_TRUE(SameContent(Unchanged(FullVlan()), Unchanged(FullVlan())));
  EXPECT_TRUE(SameContent(Unchanged(FullHost()), Unchanged(FullHost())));
  EXPECT_TRUE(SameContent(Unchanged(FullTunnel()), Unchanged(FullTunnel())));
  EXPECT_TRUE(
      SameContent(Unchanged(CircuitEntry(40, 30, 20)), Unchanged(CircuitEntry(40, 30, 20))));
  EXPECT_TRUE(SameContent(Unchanged(EcmpEntry(50, {20, 30})), Unchanged(EcmpEntry(50, {20, 30}))));
}

TEST(SameContentTest, ObjectsOfDifferentKindsDiffer) {
  EXPECT_FALSE(SameContent(Unchanged(VrfEntry(10, 10)), Unchanged(VlanEntry(10))));
  EXPECT_FALSE(SameContent(Unchanged(HostEntry(20, 10)), Unchanged(TunnelEntry(20, 10, 0))));
}

TEST(SameContentTest, VrfsDifferInEitherNumber) {
  const HaiObject vrf = MakeHaiObject(VrfEntry(1, 7));
  EXPECT_FALSE(SameContent(vrf, Unchanged(VrfEntry(2, 7))));
  EXPECT_FALSE(SameContent(vrf, Unchanged(VrfEntry(1, 8))));
  EXPECT_FALSE(SameContent(vrf, Unchanged(VrfEntry(7, 1))));
}

TEST(SameContentTest, VlansDifferInEachField) {
  const HaiObject vlan = MakeHaiObject(FullVlan());
  const auto differs = [&vlan](auto change) {
    return !SameContent(vlan, Changed(FullVlan(), change));
  };
  EXPECT_TRUE(differs([](SiteVlan* to) { to->id = 11; }));
  EXPECT_TRUE(differs([](SiteVlan* to) { to->name = "other"; }));
  EXPECT_TRUE(differs([](SiteVlan* to) { to->lim_id = 2; }));
  EXPECT_TRUE(differs([](SiteVlan* to) { to->source_mac.reset(); }));
  EXPECT_TRUE(differs([](SiteVlan* to) { to->vrf = 8; }));
  EXPECT_TRUE(differs([](SiteVlan* to) { to->mtu = 9000; }));
  EXPECT_TRUE(differs([](SiteVlan* to) { to->capabilities = {{}}; }));
  EXPECT_TRUE(differs([](SiteVlan* to) { to->list_values = {"a"}; }));
  EXPECT_TRUE(differs([](SiteVlan* to) { to->list_values = {"b", "a"}; }));
}

TEST(SameContentTest, HostsDifferInEachField) {
  const HaiObject host = MakeHaiObject(FullHost());
  const auto differs = [&host](auto change) {
    return !SameContent(host, Changed(FullHost(), change));
  };
  EXPECT_TRUE(differs([](SiteHost* to) { to->id = 21; }));
  EXPECT_TRUE(differs([](SiteHost* to) { to->name = "other"; }));
  EXPECT_TRUE(differs([](SiteHost* to) { to->lim_id = 2; }));
  EXPECT_TRUE(differs([](SiteHost* to) { to->mac.reset(); }));
  EXPECT_TRUE(differs([](SiteHost* to) { to->ip_address.clear(); }));
  EXPECT_TRUE(differs([](SiteHost* to) { to->vlan = 11; }));
  EXPECT_TRUE(differs([](SiteHost* to) { to->flags = {{}}; }));
}

TEST(SameContentTest, MplsDestinationsDifferInEachField) {
  const HaiObject tunnel = MakeHaiObject(FullTunnel());
  const auto differs = [&tunnel](auto change) {
    return !SameContent(tunnel, Changed(FullTunnel(), change));
  };
  EXPECT_TRUE(differs([](SiteMpls* to) { to->id = 31; }));
  EXPECT_TRUE(differs([](SiteMpls* to) { to->name = "other"; }));
  EXPECT_TRUE(differs([](SiteMpls* to) { to->lim_id = 2; }));
  EXPECT_TRUE(differs([](SiteMpls* to) { to->mac.reset(); }));
  EXPECT_TRUE(differs([](SiteMpls* to) { to->label = 101; }));
  EXPECT_TRUE(differs([](SiteMpls* to) { to->vc_label = 16; }));
  EXPECT_TRUE(differs([](SiteMpls* to) { to->vlan = 11; }));
  EXPECT_TRUE(differs([](SiteMpls* to) { to->neighbor = 21; }));
  EXPECT_TRUE(differs([](SiteMpls* to) { to->pass_through_value = 1; }));
}

TEST(SameContentTest, GroupsDifferInIdAndMembers) {
  const HaiObject group = MakeHaiObject(EcmpEntry(50, {20, 30}));
  EXPECT_FALSE(SameContent(group, Unchanged(EcmpEntry(51, {20, 30}))));
  EXPECT_FALSE(SameContent(group, Unchanged(EcmpEntry(50, {30, 20}))));
  EXPECT_FALSE(SameContent(group, Unchanged(EcmpEntry(50, {20, 30, 30}))));
}

TEST(HaiObjectTest, VlansHostsAndMplsDestinationsHaveALogicalInterface) {
  EXPECT_EQ(LimIdOf(MakeHaiObject(FullVlan())), kLim);
  EXPECT_EQ(LimIdOf(MakeHaiObject(FullHost())), kLim);
  EXPECT_EQ(LimIdOf(MakeHaiObject(FullTunnel())), kLim);
  EXPECT_EQ(LimIdOf(MakeHaiObject(VrfEntry(1, 7))), std::nullopt);
  EXPECT_EQ(LimIdOf(MakeHaiObject(EcmpEntry(50, {20}))), std::nullopt);
}

TEST(HaiObjectTest, AVlanMayHaveAVrf) {
  EXPECT_EQ(VrfIdOf(MakeHaiObject(FullVlan())), 7U);
  EXPECT_EQ(VrfIdOf(MakeHaiObject(VlanEntry(10))), std::nullopt);
  EXPECT_EQ(VrfIdOf(MakeHaiObject(VrfEntry(1, 7))), std::nullopt);
}

TEST(HaiObjectTest, ReferencesAreWhatTheHalMustHoldBefore) {
  EXPECT_THAT(ReferencedIds(MakeHaiObject(VrfEntry(1, 7))), IsEmpty());
  EXPECT_THAT(ReferencedIds(MakeHaiObject(FullVlan())), IsEmpty());
  EXPECT_THAT(ReferencedIds(MakeHaiObject(HostEntry(20, 10))), ElementsAre(10));
  EXPECT_THAT(ReferencedIds(MakeHaiObject(HostEntry(20, 0))), IsEmpty());
  EXPECT_THAT(ReferencedIds(MakeHaiObject(TunnelEntry(30, 10, 20))), ElementsAre(10));
  EXPECT_THAT(ReferencedIds(MakeHaiObject(CircuitEntry(40, 30, 20))), ElementsAre(30));
  EXPECT_THAT(ReferencedIds(MakeHaiObject(EcmpEntry(50, {30, 20, 30}))), ElementsAre(30, 20));
}

TEST(HaiObjectTest, AnMplsDestinationWithoutANeighborIsInactive) {
  EXPECT_TRUE(IsInactive(MakeHaiObject(TunnelEntry(30, 10, 0))));
  EXPECT_FALSE(IsInactive(MakeHaiObject(TunnelEntry(30, 10, 20))));
  EXPECT_FALSE(IsInactive(MakeHaiObject(HostEntry(20, 10))));
  EXPECT_EQ(NeighborId(MakeHaiObject(CircuitEntry(40, 30, 20))), 20U);
  EXPECT_EQ(NeighborId(MakeHaiObject(HostEntry(20, 10))), std::nullopt);
}

}  // namespace
}  // namespace reference
