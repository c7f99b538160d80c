#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "reference/site/site_writer.h"
#include "tests/site/read_site.h"

namespace reference {
namespace {

using ::testing::ElementsAre;

std::string PathOf(const std::string& name) {
  return std::string(EXAMPLE_SITES) + "/" + name + ".txtpb";
}

Site Example(const std::string& name) { return SiteOf(ReadSiteFile(PathOf(name))); }

template <class Object>
const Object& Find(const std::vector<Object>& objects, const std::string& name) {
  const auto found = std::find_if(objects.begin(), objects.end(),
                                  [&](const Object& object) { return object.name == name; });
  EXPECT_NE(found, objects.end()) << name;
  return found == objects.end() ? objects.front() : *found;
}

std::vector<std::size_t> Counts(const Site& site) {
  return {site.interfaces.size(), site.vrfs.size(), site.vlans.size(),
          site.hosts.size(),      site.mpls.size(), site.ecmps.size()};
}

std::vector<std::string> InactiveMpls(const Site& site) {
  std::vector<std::string> names;
  for (const SiteMpls& mpls : site.mpls) {
    if (mpls.neighbor == 0) names.push_back(mpls.name);
  }
  return names;
}

TEST(ExampleSitesTest, Vlans) {
  const Site site = Example("vlans");
  EXPECT_THAT(Counts(site), ElementsAre(2, 3, 6, 0, 0, 0));
  std::set<std::uint32_t> vrfs;
  for (const SiteVlan& vlan : site.vlans) {
    if (vlan.vrf) vrfs.insert(*vlan.vrf);
  }
  EXPECT_THAT(vrfs, ElementsAre(0, 10, 20));
  EXPECT_EQ(Find(site.vlans, "management").id, 22U);
}

TEST(ExampleSitesTest, TwoUplinks) {
  const Site site = Example("two_uplinks");
  EXPECT_THAT(Counts(site), ElementsAre(3, 1, 5, 4, 4, 1));
  EXPECT_THAT(InactiveMpls(site), ElementsAre());
}

TEST(ExampleSitesTest, TwoUplinksAfterADayOfChanges) {
  const Site before = Example("two_uplinks");
  const Site after = Example("two_uplinks_v2");
  EXPECT_THAT(Counts(after), ElementsAre(3, 1, 4, 3, 5, 1));
  EXPECT_THAT(InactiveMpls(after), ElementsAre("lsp-b", "vc-globex"));
  EXPECT_NE(Find(before.vlans, "uplink-a").source_mac, Find(after.vlans, "uplink-a").source_mac);
  EXPECT_EQ(Find(after.mpls, "vc-initech").tunnel, Find(after.mpls, "lsp-a").id);

  // Only the changes that the file lists.
  Site expected = before;
  expected.vlans[0].source_mac = Mac{0x02, 0, 0, 0, 0xaa, 0x11};
  expected.vlans.pop_back();
  expected.hosts.erase(expected.hosts.begin() + 1);
  expected.mpls[1].neighbor = 0;
  expected.mpls[3].neighbor = 0;
  expected.mpls.push_back(Find(after.mpls, "vc-initech"));
  EXPECT_EQ(WriteSite(after), WriteSite(expected));
}

TEST(ExampleSitesTest, ProviderEdge) {
  const Site site = Example("provider_edge");
  EXPECT_THAT(Counts(site), ElementsAre(6, 2, 8, 40, 20, 6));
  EXPECT_THAT(InactiveMpls(site), ElementsAre());
  EXPECT_EQ(std::count_if(site.mpls.begin(), site.mpls.end(),
                          [](const SiteMpls& mpls) { return mpls.vc_label.has_value(); }),
            12);
  EXPECT_THAT(Find(site.ecmps, "to-pe2").members, ElementsAre(201, 202));
  EXPECT_THAT(Find(site.ecmps, "to-core-weighted").members, ElementsAre(101, 101, 102));
  EXPECT_THAT(Find(site.ecmps, "to-pe6").members, ElementsAre());
  std::set<std::string> addresses;
  for (const SiteHost& host : site.hosts) addresses.insert(host.ip_address);
  EXPECT_EQ(addresses.size(), site.hosts.size());
}

TEST(ExampleSitesTest, Mistakes) {
  EXPECT_EQ(
      Mistakes(ReadSiteFile(PathOf("mistakes")), "mistakes.txtpb"),
      R"(mistakes.txtpb:3:26: lim_id 16777217 is used twice, first at line 2; give every interface a lim_id of its own
mistakes.txtpb:3:43: type 300 is out of range; use 0 to 255
mistakes.txtpb:5:1: vrf "blue" has no vrf_id; add vrf_id: N with N from 0 to 4294967295
mistakes.txtpb:7:30: unknown interface "eth9"; add an interface { name: "eth9" ... } or use one of: eth0, eth1
mistakes.txtpb:7:48: mtu 5000000000 is out of range; use 0 to 4294967295
mistakes.txtpb:8:48: bad MAC address "02:00"; write six hexadecimal pairs with colons, as in "02:00:00:00:01:0a"
mistakes.txtpb:8:68: unknown capability "router"; use one of: none, routed
mistakes.txtpb:9:8: id 0 is out of range; use 1 to 4294967295
mistakes.txtpb:11:8: id 10 is used twice, first at line 7; give every destination an id of its own
mistakes.txtpb:11:45: bad IP address "192.0.2"; write IPv4, as in "192.0.2.1", or IPv6, as in "2001:db8::1"
mistakes.txtpb:11:59: unknown vlan "core-z"; add a vlan { name: "core-z" ... } or use one of: core-a, core-b, core-c
mistakes.txtpb:11:74: unknown flag "to-cup"; use one of: none, drop, to-cpu
mistakes.txtpb:12:16: name "core-a" is used twice, first at line 7; give every destination a name of its own
mistakes.txtpb:13:1: host has no name; add name: "..."
mistakes.txtpb:15:62: mpls "lsp-pe2" has tunnel but no vc_label; add vc_label: N or remove tunnel
mistakes.txtpb:16:48: mpls "vc-55" has vc_label but no tunnel; add tunnel: "..." or remove vc_label
mistakes.txtpb:16:61: mpls "vc-55" has vc_label and vlan; remove vlan, because a virtual circuit rides on its tunnel, or remove vc_label
mistakes.txtpb:18:46: unknown member "pe9"; add a vlan, host or mpls { name: "pe9" ... } or use one of: core-a, core-b, core-c, pe2, lsp-pe2, ...
)");
}

TEST(ExampleSitesTest, EveryExampleIsTestedHere) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(EXAMPLE_SITES)) {
    if (entry.path().extension() == ".txtpb") names.insert(entry.path().stem());
  }
  EXPECT_THAT(names,
              ElementsAre("mistakes", "provider_edge", "two_uplinks", "two_uplinks_v2", "vlans"));
}

}  // namespace
}  // namespace reference
