#include "reference/manager/engine/dest_database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "dest_mng.pb.h"
#include "reference/manager/views/report.h"
#include "reference/site/generate_site.h"
#include "tests/manager/sites.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::vector<std::string> Keys(const std::vector<Object*>& objects) {
  std::vector<std::string> keys;
  for (const Object* const object : objects) keys.push_back(KeyText(object->key));
  return keys;
}

template <typename Record>
const Record& RecordOf(const DestDatabase& database, ObjectKey key) {
  const Object* const object = database.Find(key);
  const google::protobuf::Message* record = nullptr;
  if (key.kind == HalKind::kVlan) record = std::get<1>(object->content)->record.get();
  if (key.kind == HalKind::kHost) record = std::get<2>(object->content)->record.get();
  if (key.kind == HalKind::kMpls) record = std::get<4>(object->content)->record.get();
  return dynamic_cast<const Record&>(*record);
}

// The keys are those of the HAL's entries: a VRF's key has its number.
TEST(DestDatabaseTest, EverythingOfAFirstSiteIsNew) {
  DestDatabase database;
  const auto changes = database.Replace(SiteOfAllKinds());
  EXPECT_THAT(Keys(changes.changed),
              UnorderedElementsAre("vrf:7", "vlan:10", "vlan:11", "host:20", "host:21", "ecmp:30",
                                   "mpls:40", "mpls:41"));
  EXPECT_THAT(changes.dropped, IsEmpty());
}

TEST(DestDatabaseTest, TheSameSiteAgainChangesNothing) {
  DestDatabase database;
  const Site site = GenerateSite(5, 500);
  EXPECT_EQ(database.Replace(site).changed.size(), 500U);
  const auto changes = database.Replace(site);
  EXPECT_THAT(changes.changed, IsEmpty());
  EXPECT_THAT(changes.dropped, IsEmpty());
}

struct ChangeCase {
  const char* name;
  std::function<void(Site*)> change;
  std::vector<std::string> changed;
  std::vector<std::string> dropped;
};

void PrintTo(const ChangeCase& change, std::ostream* out) { *out << change.name; }

class DestDatabaseChangeTest : public ::testing::TestWithParam<ChangeCase> {};

TEST_P(DestDatabaseChangeTest, ReportsWhatChanges) {
  DestDatabase database;
  Site site = SiteOfAllKinds();
  database.Replace(site);
  GetParam().change(&site);
  const auto changes = database.Replace(site);
  EXPECT_EQ(Keys(changes.changed), GetParam().changed);
  EXPECT_EQ(Keys(changes.dropped), GetParam().dropped);
}

INSTANTIATE_TEST_SUITE_P(
    Changes, DestDatabaseChangeTest,
    ::testing::Values(
        ChangeCase{"VrfNumber", [](Site* site) { site->vrfs[0].vrf_id = 8; }, {"vrf:8"}, {"vrf:7"}},
        ChangeCase{"VrfName", [](Site* site) { site->vrfs[0].name = "red"; }, {}, {}},
        ChangeCase{"VlanName", [](Site* site) { site->vlans[0].name = "a"; }, {"vlan:10"}, {}},
        ChangeCase{"VlanLimId", [](Site* site) { site->vlans[0].lim_id = 9; }, {"vlan:10"}, {}},
        ChangeCase{"VlanMtuGone", [](Site* site) { site->vlans[0].mtu.reset(); }, {"vlan:10"}, {}},
        ChangeCase{
            "VlanList", [](Site* site) { site->vlans[0].list_values = {"a"}; }, {"vlan:10"}, {}},
        ChangeCase{"HostMac",
                   [](Site* site) { site->hosts[0].mac = Mac{2, 0, 0, 0, 0, 1}; },
                   {"host:20"},
                   {}},
        ChangeCase{"HostVlan", [](Site* site) { site->hosts[0].vlan = 11; }, {"host:20"}, {}},
        ChangeCase{"EcmpMembers",
                   [](Site* site) {
                     site->ecmps[0].members = {40, 20};
                   },
                   {"ecmp:30"},
                   {}},
        ChangeCase{"EcmpName", [](Site* site) { site->ecmps[0].name = "pair"; }, {}, {}},
        ChangeCase{"MplsNeighbor", [](Site* site) { site->mpls[0].neighbor = 0; }, {"mpls:40"}, {}},
        ChangeCase{"MplsTunnelBecomesCircuit",
                   [](Site* site) { site->mpls[1] = CircuitEntry(41, 40, 21); },
                   {"mpls:41"},
                   {}},
        ChangeCase{"Gone",
                   [](Site* site) {
                     site->hosts.clear();
                     site->vrfs.clear();
                   },
                   {},
                   {"host:20", "host:21", "vrf:7"}},
        ChangeCase{"IdOfAnotherKind",
                   [](Site* site) {
                     site->vlans.erase(site->vlans.begin());
                     site->hosts.push_back(HostEntry(10, 11));
                   },
                   {"host:10"},
                   {"vlan:10"}},
        ChangeCase{"Order", [](Site* site) { std::swap(site->vlans[0], site->vlans[1]); }, {}, {}}),
    [](const auto& instance) { return std::string(instance.param.name); });

// In the order of kinds and ids, whatever the site's order.
TEST(DestDatabaseTest, ComparesASiteWithItsObjects) {
  DestDatabase database;
  Site site = SiteOfAllKinds();
  database.Replace(site);
  site.vrfs = {VrfEntry(2, 7)};
  std::swap(site.vlans[0], site.vlans[1]);
  site.vlans[0].mtu = 9000;
  site.vlans.push_back(VlanEntry(9));
  site.vlans.erase(site.vlans.begin() + 1);
  site.hosts.erase(site.hosts.begin());
  site.ecmps[0].name = "pair";
  const SiteDifference difference = database.Compare(site);
  Site expected;
  expected.vrfs = {VrfEntry(2, 7)};
  expected.vlans = {VlanEntry(9), VlanEntry(11, 9000)};
  expected.ecmps = {site.ecmps[0]};
  EXPECT_TRUE(difference.changed == expected);
  EXPECT_THAT(difference.gone,
              ElementsAre(database.Find({HalKind::kVrf, 1}), database.Find({HalKind::kVlan, 10}),
                          database.Find({HalKind::kHost, 20})));
  EXPECT_EQ(difference.present, 8U);
}

TEST(DestDatabaseTest, WhatIsBeingRemovedIsGoneAlready) {
  DestDatabase database;
  database.Replace(SiteOfAllKinds());
  database.Replace(Site());
  const SiteDifference difference = database.Compare(Site());
  EXPECT_THAT(difference.gone, IsEmpty());
  EXPECT_EQ(difference.present, 0U);
}

TEST(DestDatabaseTest, ADifferenceOfMostEntriesIsNotCopied) {
  DestDatabase database;
  Site site;
  for (std::uint32_t id = 1; id <= 100; ++id) site.vlans.push_back(VlanEntry(id));
  site.vlans.shrink_to_fit();
  database.Replace(site);
  for (std::uint32_t id = 1; id <= 60; ++id) site.vlans[id].mtu = 9000;
  EXPECT_EQ(database.Compare(site).changed.vlans.capacity(), 100U);
}

TEST(DestDatabaseTest, ADifferenceKeepsTheMemoryOfItsOwnEntriesOnly) {
  DestDatabase database;
  Site site;
  for (std::uint32_t id = 1; id <= 100; ++id) site.vlans.push_back(VlanEntry(id));
  database.Replace(site);
  site.vlans[0].mtu = 9000;
  EXPECT_EQ(database.Compare(site).changed.vlans.capacity(), 1U);
}

TEST(DestDatabaseTest, ANumberThatIsBeingRemovedIsNotDroppedAgain) {
  DestDatabase database;
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  database.Replace(site);
  EXPECT_THAT(Keys(database.Replace(Site()).dropped), ElementsAre("vrf:7"));
  site.vrfs = {VrfEntry(1, 8)};
  const auto changes = database.Replace(site);
  EXPECT_THAT(Keys(changes.changed), ElementsAre("vrf:8"));
  EXPECT_THAT(changes.dropped, IsEmpty());
}

// The second VRF of a number keeps its entry, and names it.
TEST(DestDatabaseTest, AnEntryThatVrfsShareIsNamedAfterTheFirstOfThem) {
  DestDatabase database;
  Site site;
  site.vrfs = {VrfEntry(2, 7), VrfEntry(1, 7)};
  EXPECT_THAT(Keys(database.Replace(site).changed), ElementsAre("vrf:7"));
  EXPECT_EQ(database.FindEntry({HalKind::kVrf, 7})->name, "vrf-1");
  site.vrfs.pop_back();
  const auto changes = database.Replace(site);
  EXPECT_THAT(changes.changed, IsEmpty());
  EXPECT_THAT(changes.dropped, IsEmpty());
  EXPECT_EQ(database.FindEntry({HalKind::kVrf, 7})->name, "vrf-2");
  EXPECT_THAT(Keys(database.Replace(Site()).dropped), ElementsAre("vrf:7"));
}

TEST(DestDatabaseTest, ADroppedObjectThatComesBackIsAChange) {
  DestDatabase database;
  const Site site = SiteOfAllKinds();
  database.Replace(site);
  database.Replace(Site());
  EXPECT_FALSE(database.Find({HalKind::kVlan, 10})->wanted);
  EXPECT_EQ(database.Replace(site).changed.size(), 8U);
  EXPECT_TRUE(database.Find({HalKind::kVlan, 10})->wanted);
}

TEST(DestDatabaseTest, ForgetsWhatWasRemoved) {
  DestDatabase database;
  database.Replace(SiteOfAllKinds());
  database.Replace(Site());
  database.SetState(database.FindEntry({HalKind::kVlan, 10}), ObjectState::kRemoved);
  EXPECT_THAT(database.Replace(Site()).dropped, IsEmpty());
  EXPECT_EQ(database.Find({HalKind::kVlan, 10}), nullptr);
  EXPECT_NE(database.Find({HalKind::kVlan, 11}), nullptr);
}

TEST(DestDatabaseTest, FindsEntriesInAnyOrder) {
  DestDatabase database;
  database.Replace(SiteOfAllKinds());
  const std::vector<ObjectKey> keys = {
      {HalKind::kVlan, 10}, {HalKind::kVlan, 11}, {HalKind::kHost, 20}, {HalKind::kHost, 20},
      {HalKind::kVlan, 10}, {HalKind::kHost, 21}, {HalKind::kVlan, 12}, {HalKind::kVlan, 11},
      {HalKind::kVlan, 12}, {HalKind::kMpls, 41}, {HalKind::kMpls, 42}, {HalKind::kVlan, 10}};
  std::vector<std::string> found;
  for (const ObjectKey& key : keys) {
    const Object* const object = database.FindEntry(key);
    found.push_back(object == nullptr ? "none" : KeyText(object->key));
  }
  EXPECT_THAT(found, ElementsAre("vlan:10", "vlan:11", "host:20", "host:20", "vlan:10", "host:21",
                                 "none", "vlan:11", "none", "mpls:41", "none", "vlan:10"));
}

TEST(DestDatabaseTest, FindsEntriesAfterTheLastOneFoundIsForgotten) {
  DestDatabase database;
  database.Replace(SiteOfAllKinds());
  database.Replace(Site());
  database.SetState(database.FindEntry({HalKind::kVlan, 10}), ObjectState::kRemoved);
  database.Replace(Site());
  EXPECT_EQ(database.FindEntry({HalKind::kVlan, 10}), nullptr);
  EXPECT_EQ(database.FindEntry({HalKind::kVlan, 11}), database.Find({HalKind::kVlan, 11}));
}

TEST(DestDatabaseTest, ForgetsTheEntryOfARemovedVrf) {
  DestDatabase database;
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  database.Replace(site);
  database.Replace(Site());
  database.SetState(database.FindEntry({HalKind::kVrf, 7}), ObjectState::kRemoved);
  database.Replace(Site());
  EXPECT_EQ(database.FindEntry({HalKind::kVrf, 7}), nullptr);
  EXPECT_EQ(database.Find({HalKind::kVrf, 1}), nullptr);
}

TEST(DestDatabaseTest, AVrfDoesNotChangeWithAnObjectOfTheSameId) {
  DestDatabase database;
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  site.vlans = {VlanEntry(1)};
  database.Replace(site);
  site.vlans.clear();
  database.Replace(site);
  database.SetState(database.FindEntry({HalKind::kVlan, 1}), ObjectState::kRemoved);
  database.Replace(site);
  database.SetState(database.FindEntry({HalKind::kVrf, 7}), ObjectState::kSent);
  EXPECT_EQ(StandingOf(*database.Find({HalKind::kVrf, 1})), Standing::kSent);
}

TEST(DestDatabaseTest, AFailureOfAnObjectThatCameBackDropsNothing) {
  DestDatabase database;
  const Site site = SiteOfAllKinds();
  database.Replace(site);
  database.Replace(Site());
  database.Replace(site);
  database.SetState(database.FindEntry({HalKind::kVlan, 10}), ObjectState::kFailed);
  EXPECT_THAT(database.Replace(site).dropped, IsEmpty());
}

TEST(DestDatabaseTest, AFailureOfAVrfThatCameBackDropsNothing) {
  DestDatabase database;
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  database.Replace(site);
  database.Replace(Site());
  database.Replace(site);
  database.SetState(database.FindEntry({HalKind::kVrf, 7}), ObjectState::kFailed);
  EXPECT_THAT(database.Replace(site).dropped, IsEmpty());
}

TEST(DestDatabaseTest, CountsWhatIsBeingRemoved) {
  DestDatabase database;
  database.Replace(SiteOfAllKinds());
  database.Replace(Site());
  database.Replace(Site());
  EXPECT_EQ(database.counts(HalKind::kVlan).at(static_cast<std::size_t>(Standing::kPending)), 2U);
}

TEST(DestDatabaseTest, ARemovalThatFailedIsDroppedAgain) {
  DestDatabase database;
  database.Replace(SiteOfAllKinds());
  database.Replace(Site());
  database.SetState(database.FindEntry({HalKind::kVlan, 10}), ObjectState::kFailed);
  EXPECT_THAT(Keys(database.Replace(Site()).dropped), ElementsAre("vlan:10"));
}

TEST(DestDatabaseTest, ARemovalOfAVrfThatFailedIsDroppedAgain) {
  DestDatabase database;
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  database.Replace(site);
  database.Replace(Site());
  database.SetState(database.FindEntry({HalKind::kVrf, 7}), ObjectState::kFailed);
  EXPECT_THAT(Keys(database.Replace(Site()).dropped), ElementsAre("vrf:7"));
  EXPECT_THAT(Keys(database.Replace(site).changed), ElementsAre("vrf:7"));
}

TEST(DestDatabaseTest, BuildsAVlan) {
  Site site;
  SiteVlan vlan;
  vlan.id = 10;
  vlan.name = "core";
  vlan.lim_id = 0x01020304;
  vlan.source_mac = Mac{2, 0, 0, 0, 1, 10};
  vlan.vrf = 0;
  vlan.mtu = 9000;
  vlan.capabilities = {dest_mng::VLAN_CAPABILITY_ROUTED, dest_mng::VLAN_CAPABILITY_NONE};
  vlan.list_values = {"a", "b"};
  site.vlans = {vlan};
  DestDatabase database;
  database.Replace(site);

  const std::uint32_t lim_id = 0x01020304;
  dest_mng::DestVlanMessage expected;
  expected.set_lim_id(&lim_id, sizeof lim_id);
  expected.set_source_mac(std::string("\x02\x00\x00\x00\x01\x0a", 6));
  expected.set_name("core");
  expected.set_vlan_dest_id(10);
  expected.set_vrf(0);
  expected.set_mtu(9000);
  expected.add_capabilities(dest_mng::VLAN_CAPABILITY_ROUTED);
  expected.add_capabilities(dest_mng::VLAN_CAPABILITY_NONE);
  EXPECT_EQ(RecordOf<dest_mng::DestVlanMessage>(database, {HalKind::kVlan, 10}).ShortDebugString(),
            expected.ShortDebugString());

  const auto& object = *std::get<1>(database.Find({HalKind::kVlan, 10})->content);
  const auto& [type, list] = object.attribute_lists.at(object.list_attribute_name);
  EXPECT_EQ(type, db::AttributeType::kString);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(boost::get<std::string>(list[0].value), "a");
  EXPECT_EQ(boost::get<std::string>(list[1].value), "b");
  EXPECT_TRUE(list[0].present);
}

TEST(DestDatabaseTest, BuildsAHost) {
  Site site;
  SiteHost host = HostEntry(20, 0xFFFFFFFF);
  host.mac = Mac{2, 0, 0, 0, 2, 20};
  host.ip_address = std::string("\xc0\x00\x02\x01", 4);
  host.vrf = 5;
  host.flags = {dest_mng::ACTION_TO_CPU};
  site.hosts = {host};
  DestDatabase database;
  database.Replace(site);

  const auto& record = RecordOf<dest_mng::DestHostMessage>(database, {HalKind::kHost, 20});
  EXPECT_EQ(record.dest_id(), 20U);
  EXPECT_EQ(record.name(), "host-20");
  EXPECT_EQ(record.dest_mac(), std::string("\x02\x00\x00\x00\x02\x14", 6));
  EXPECT_EQ(record.ip_address(), std::string("\xc0\x00\x02\x01", 4));
  EXPECT_EQ(record.vrf(), 5U);
  EXPECT_THAT(record.flags(), ElementsAre(dest_mng::ACTION_TO_CPU));
  const auto& object = *std::get<2>(database.Find({HalKind::kHost, 20})->content);
  EXPECT_EQ(boost::get<int>(object.attributes.at("vlan_dest_id").value), -1);
}

TEST(DestDatabaseTest, BuildsATunnel) {
  Site site;
  SiteMpls tunnel = TunnelEntry(41, 11, 21);
  tunnel.label = 3000;
  tunnel.pass_through_value = 77;
  tunnel.capabilities = {dest_mng::MPLS_CAPABILITY_PUSH};
  site.mpls = {tunnel};
  DestDatabase database;
  database.Replace(site);

  const auto& record = RecordOf<dest_mng::DestMplsMessage>(database, {HalKind::kMpls, 41});
  EXPECT_EQ(record.mpls_dest_id(), 41U);
  EXPECT_EQ(record.label(), 3000U);
  EXPECT_EQ(record.pass_through_value(), 77U);
  EXPECT_THAT(record.capabilities(), ElementsAre(dest_mng::MPLS_CAPABILITY_PUSH));
  EXPECT_FALSE(record.has_vc_label());
  EXPECT_FALSE(record.has_tunnel_dest_id());
  const auto& object = *std::get<4>(database.Find({HalKind::kMpls, 41})->content);
  EXPECT_EQ(boost::get<int>(object.attributes.at("vlan_dest_id").value), 11);
  EXPECT_EQ(boost::get<int>(object.attributes.at("host_dest_id").value), 21);
}

TEST(DestDatabaseTest, BuildsACircuit) {
  DestDatabase database;
  database.Replace(SiteOfAllKinds());
  const auto& record = RecordOf<dest_mng::DestMplsMessage>(database, {HalKind::kMpls, 40});
  EXPECT_EQ(record.vc_label(), 16U);
  EXPECT_EQ(record.tunnel_dest_id(), 41U);
  const auto& object = *std::get<4>(database.Find({HalKind::kMpls, 40})->content);
  EXPECT_EQ(object.attributes.count("vlan_dest_id"), 0U);
  EXPECT_EQ(boost::get<int>(object.attributes.at("host_dest_id").value), 21);
}

TEST(DestDatabaseTest, BuildsEcmpGroupsAndVrfs) {
  Site site = SiteOfAllKinds();
  site.ecmps[0].members = {20, 40, 20};
  DestDatabase database;
  database.Replace(site);
  const auto& ecmp = std::get<dest_mng::EcmpData>(database.Find({HalKind::kEcmp, 30})->content);
  EXPECT_EQ(ecmp.db_id, 30U);
  EXPECT_THAT(ecmp.nhops, ElementsAre(20U, 40U, 20U));
  const auto& vrf = std::get<dest_mng::VrfData>(database.Find({HalKind::kVrf, 1})->content);
  EXPECT_EQ(vrf.vrf_id, 7U);
  EXPECT_EQ(vrf.db_id, 1U);
}

TEST(DestDatabaseTest, AVrfHasTheStateOfItsNewNumber) {
  DestDatabase database;
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  database.Replace(site);
  site.vrfs[0].vrf_id = 8;
  database.Replace(site);
  database.SetState(database.FindEntry({HalKind::kVrf, 7}), ObjectState::kRemoved);
  database.SetState(database.FindEntry({HalKind::kVrf, 8}), ObjectState::kSent);
  EXPECT_EQ(StandingOf(*database.Find({HalKind::kVrf, 1})), Standing::kSent);
}

TEST(DestDatabaseTest, AWatcherSeesWhyAVrfFailed) {
  DestDatabase database;
  std::vector<std::string> seen;
  database.Watch([&seen](const Object& object) {
    seen.push_back(KeyText(object.key) + ' ' + ReasonOf(object));
  });
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  database.Replace(site);
  Object* const entry = database.FindEntry({HalKind::kVrf, 7});
  entry->code = kHalTableFull;
  database.SetState(entry, ObjectState::kFailed);
  EXPECT_EQ(seen.back(), "vrf:1 table full");
}

TEST(DestDatabaseTest, AWatcherSeesCountsOfEveryObject) {
  DestDatabase database;
  std::vector<std::size_t> seen;
  database.Watch([&](const Object&) {
    const auto& counts = database.counts(HalKind::kVlan);
    seen.push_back(std::accumulate(counts.begin(), counts.end(), std::size_t{0}));
  });
  Site site;
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  database.Replace(site);
  seen.clear();
  database.SetState(database.FindEntry({HalKind::kVlan, 10}), ObjectState::kInstalled);
  EXPECT_THAT(seen, ElementsAre(2U));
}

TEST(DestDatabaseTest, KnowsWhatAnObjectRefersTo) {
  Site site = SiteOfAllKinds();
  site.ecmps[0].members = {40, 20, 40};
  DestDatabase database;
  database.Replace(site);
  const auto references = [&database](HalKind kind, std::uint32_t id) {
    return ReferencedIds(database.Find({kind, id})->content);
  };
  EXPECT_THAT(references(HalKind::kVrf, 1), IsEmpty());
  EXPECT_THAT(references(HalKind::kVlan, 10), IsEmpty());
  EXPECT_THAT(references(HalKind::kHost, 21), ElementsAre(11U));
  EXPECT_THAT(references(HalKind::kMpls, 41), ElementsAre(11U));
  EXPECT_THAT(references(HalKind::kMpls, 40), ElementsAre(41U));
  EXPECT_THAT(references(HalKind::kEcmp, 30), ElementsAre(40U, 20U));
}

}  // namespace
}  // namespace reference
