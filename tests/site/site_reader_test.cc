#include "reference/site/site_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "reference/site/generate_site.h"
#include "reference/site/site_writer.h"
#include "tests/site/read_site.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char kFullSite[] = R"(
interface { name: "eth0" lim_id: 16777217 type: 1 ifindex: 4 }
interface { name: "eth1" lim_id: 4294967295 type: 255 ifindex: 4294967295 }
vrf { id: 10 name: "core-a" vrf_id: 7 }
ecmp { id: 301 name: "to-core" member: "pe2" member: "lsp-pe2" member: "core-a" member: "pe2" }
ecmp { id: 302 name: "to-nowhere" }
vlan {
  id: 10
  name: "core-a"
  interface: "eth0"
  source_mac: "02:00:00:00:01:0A"
  vrf: 10
  mtu: 1500
  capability: "routed"
  capability: "none"
  list_value: "eth0.100"
  list_value: "Zürich"
}
vlan { id: 11 name: "core-b" interface: "eth1" vrf: 4294967295 mtu: 0 }
host {
  id: 101
  name: "pe2"
  interface: "eth1"
  mac: "02:00:00:00:03:01"
  ip: "192.0.2.1"
  vrf: 4294967295
  vlan: "core-b"
  flag: ["none", "drop", "to-cpu"]
}
host { id: 4294967295 name: "pe3" interface: "eth0" ip: "2001:db8::1" }
mpls {
  id: 201
  name: "lsp-pe2"
  interface: "eth0"
  mac: "02:00:00:00:03:02"
  label: 1001
  vlan: "core-a"
  neighbor: "pe2"
  pass_through_value: 4294967295
  capability: ["none", "protection", "swap", "push", "forward", "vc-label"]
}
mpls { id: 202 name: "vc" interface: "eth0" label: 1048575 vc_label: 0 tunnel: "lsp-pe2"
       neighbor: "gone" }
)";

TEST(SiteReaderTest, ReadsEveryFieldOfInterfacesAndVrfs) {
  const Site site = SiteOf(ParseSite(kFullSite));
  EXPECT_THAT(site.interfaces, ElementsAre(SiteInterface{"eth0", 16777217, 1, 4},
                                           SiteInterface{"eth1", 4294967295, 255, 4294967295}));
  EXPECT_THAT(site.vrfs, ElementsAre(SiteVrf{10, "core-a", 7}));
}

TEST(SiteReaderTest, ReadsEveryFieldOfVlans) {
  const Site site = SiteOf(ParseSite(kFullSite));
  ASSERT_EQ(site.vlans.size(), 2U);
  const SiteVlan& full = site.vlans[0];
  EXPECT_EQ(full.id, 10U);
  EXPECT_EQ(full.name, "core-a");
  EXPECT_EQ(full.lim_id, 16777217U);
  EXPECT_EQ(full.source_mac, (Mac{0x02, 0, 0, 0, 0x01, 0x0a}));
  EXPECT_EQ(full.vrf, 10U);
  EXPECT_EQ(full.mtu, 1500U);
  EXPECT_THAT(full.capabilities,
              ElementsAre(dest_mng::VLAN_CAPABILITY_ROUTED, dest_mng::VLAN_CAPABILITY_NONE));
  EXPECT_THAT(full.list_values, ElementsAre("eth0.100", "Zürich"));
  const SiteVlan& sparse = site.vlans[1];
  EXPECT_EQ(sparse.lim_id, 4294967295U);
  EXPECT_EQ(sparse.source_mac, std::nullopt);
  EXPECT_EQ(sparse.vrf, 4294967295U);
  EXPECT_EQ(sparse.mtu, 0U);
  EXPECT_THAT(sparse.capabilities, IsEmpty());
  EXPECT_THAT(sparse.list_values, IsEmpty());
}

TEST(SiteReaderTest, ReadsEveryFieldOfHosts) {
  const Site site = SiteOf(ParseSite(kFullSite));
  ASSERT_EQ(site.hosts.size(), 2U);
  const SiteHost& full = site.hosts[0];
  EXPECT_EQ(full.id, 101U);
  EXPECT_EQ(full.name, "pe2");
  EXPECT_EQ(full.lim_id, 4294967295U);
  EXPECT_EQ(full.mac, (Mac{0x02, 0, 0, 0, 0x03, 0x01}));
  EXPECT_EQ(full.ip_address, std::string("\xc0\x00\x02\x01", 4));
  EXPECT_EQ(full.vrf, 4294967295U);
  EXPECT_EQ(full.vlan, 11U);
  EXPECT_THAT(full.flags,
              ElementsAre(dest_mng::ACTION_NONE, dest_mng::ACTION_DROP, dest_mng::ACTION_TO_CPU));
  const SiteHost& sparse = site.hosts[1];
  EXPECT_EQ(sparse.id, 4294967295U);
  EXPECT_EQ(sparse.mac, std::nullopt);
  EXPECT_EQ(sparse.ip_address, std::string("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x01", 16));
  EXPECT_EQ(sparse.vrf, std::nullopt);
  EXPECT_EQ(sparse.vlan, 0U);
  EXPECT_THAT(sparse.flags, IsEmpty());
}

TEST(SiteReaderTest, ReadsEveryFieldOfMplsDestinations) {
  const Site site = SiteOf(ParseSite(kFullSite));
  ASSERT_EQ(site.mpls.size(), 2U);
  const SiteMpls& tunnel = site.mpls[0];
  EXPECT_EQ(tunnel.id, 201U);
  EXPECT_EQ(tunnel.name, "lsp-pe2");
  EXPECT_EQ(tunnel.lim_id, 16777217U);
  EXPECT_EQ(tunnel.mac, (Mac{0x02, 0, 0, 0, 0x03, 0x02}));
  EXPECT_EQ(tunnel.label, 1001U);
  EXPECT_EQ(tunnel.vc_label, std::nullopt);
  EXPECT_EQ(tunnel.vlan, 10U);
  EXPECT_EQ(tunnel.tunnel, 0U);
  EXPECT_EQ(tunnel.neighbor, 101U);
  EXPECT_EQ(tunnel.pass_through_value, 4294967295U);
  EXPECT_THAT(tunnel.capabilities,
              ElementsAre(dest_mng::MPLS_CAPABILITY_NONE, dest_mng::MPLS_CAPABILITY_PROTECTION,
                          dest_mng::MPLS_CAPABILITY_SWAP, dest_mng::MPLS_CAPABILITY_PUSH,
                          dest_mng::MPLS_CAPABILITY_FORWARD, dest_mng::MPLS_CAPABILITY_VC_LABEL));
  const SiteMpls& circuit = site.mpls[1];
  EXPECT_EQ(circuit.mac, std::nullopt);
  EXPECT_EQ(circuit.label, 1048575U);
  EXPECT_EQ(circuit.vc_label, 0U);
  EXPECT_EQ(circuit.vlan, 0U);
  EXPECT_EQ(circuit.tunnel, 201U);
  EXPECT_EQ(circuit.neighbor, 0U) << "the site has no such host";
  EXPECT_EQ(circuit.pass_through_value, std::nullopt);
  EXPECT_THAT(circuit.capabilities, IsEmpty());
}

TEST(SiteReaderTest, ReadsEveryFieldOfEcmpGroups) {
  const Site site = SiteOf(ParseSite(kFullSite));
  EXPECT_THAT(site.ecmps, ElementsAre(SiteEcmp{301, "to-core", {101, 201, 10, 101}},
                                      SiteEcmp{302, "to-nowhere", {}}));
}

TEST(SiteReaderTest, AnEmptySiteSaysSo) {
  EXPECT_EQ(SiteOf(ParseSite("object_count: 0")), Site());
  for (const char* const text : {"", "\n", "# vlan { }\n"}) {
    EXPECT_EQ(Mistakes(ParseSite(text)),
              "site.txtpb: the file has no entries; restore them, or write object_count: 0 to "
              "remove everything\n");
  }
}

TEST(SiteReaderTest, ASiteMayHaveInterfacesOnly) {
  EXPECT_EQ(SiteOf(ParseSite("interface { name: \"eth0\" lim_id: 1 }")).interfaces.size(), 1U);
}

TEST(SiteReaderTest, TheObjectCountMustBeRight) {
  const std::string objects =
      "interface { name: \"eth0\" lim_id: 1 }\nvrf { id: 1 name: \"red\" vrf_id: 7 }\n"
      "vlan { id: 10 name: \"a\" interface: \"eth0\" }\n";
  EXPECT_EQ(CountObjects(SiteOf(ParseSite("object_count: 2\n" + objects))), 2U);
  EXPECT_EQ(Mistakes(ParseSite("object_count: 3\n" + objects)),
            "site.txtpb:1:1: object_count is 3, but the file has 2 objects; restore the missing "
            "ones or correct object_count\n");
  EXPECT_EQ(Mistakes(ParseSite("vrf { id: 1 name: \"red\" vrf_id: 7 }\nobject_count: -1\n")),
            "site.txtpb:2:1: object_count is -1, but the file has 1 object; restore the missing "
            "ones or correct object_count\n");
}

TEST(SiteReaderTest, InterfaceNumbersMayBeMissing) {
  EXPECT_THAT(SiteOf(ParseSite(R"(interface { name: "eth0" lim_id: 0 })")).interfaces,
              ElementsAre(SiteInterface{"eth0", 0, 0, 0}));
}

struct MistakeCase {
  const char* name;
  // Follows kSite. ^ marks the place of the mistake and is removed.
  const char* text;
  const char* mistake;
};

void PrintTo(const MistakeCase& test, std::ostream* out) { *out << test.text; }

const char kSite[] = R"(interface { name: "eth0" lim_id: 1 } vrf { id: 1 name: "blue" vrf_id: 5 }
vlan { id: 1 name: "v1" interface: "eth0" } host { id: 2 name: "h1" interface: "eth0" }
mpls { id: 3 name: "t1" interface: "eth0" } ecmp { id: 4 name: "g1" }
)";

class MistakeTest : public ::testing::TestWithParam<MistakeCase> {};

TEST_P(MistakeTest, IsReportedWithPlaceAndRemedy) {
  std::string text = std::string(kSite) + GetParam().text;
  const std::size_t mark = text.find('^');
  ASSERT_NE(mark, std::string::npos);
  text.erase(mark, 1);
  const std::string before = text.substr(0, mark);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  const std::size_t column = mark - before.rfind('\n');
  EXPECT_EQ(Mistakes(ParseSite(text), "site.txtpb"), "site.txtpb:" + std::to_string(line) + ':' +
                                                         std::to_string(column) + ": " +
                                                         GetParam().mistake + '\n');
}

std::string CaseName(const ::testing::TestParamInfo<MistakeCase>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(
    Number, MistakeTest,
    ::testing::Values(
        MistakeCase{"MtuTooGreat", R"(vlan { id: 9 name: "x" interface: "eth0" ^mtu: 5000000000 })",
                    "mtu 5000000000 is out of range; use 0 to 4294967295"},
        MistakeCase{"MtuOneTooGreat",
                    R"(vlan { id: 9 name: "x" interface: "eth0" ^mtu: 4294967296 })",
                    "mtu 4294967296 is out of range; use 0 to 4294967295"},
        MistakeCase{"VlanVrfNegative", R"(vlan { id: 9 name: "x" interface: "eth0" ^vrf: -1 })",
                    "vrf -1 is out of range; use 0 to 4294967295"},
        MistakeCase{"HostVrf", R"(host { id: 9 name: "x" interface: "eth0" ^vrf: -1 })",
                    "vrf -1 is out of range; use 0 to 4294967295"},
        MistakeCase{"Label", R"(mpls { id: 9 name: "x" interface: "eth0" ^label: -1 })",
                    "label -1 is out of range; use 0 to 1048575"},
        MistakeCase{"LabelOneTooGreat",
                    R"(mpls { id: 9 name: "x" interface: "eth0" ^label: 1048576 })",
                    "label 1048576 is out of range; use 0 to 1048575"},
        MistakeCase{"VcLabelOneTooGreat",
                    R"(mpls { id: 9 name: "x" interface: "eth0" tunnel: "t1" ^vc_label: 1048576 })",
                    "vc_label 1048576 is out of range; use 0 to 1048575"},
        MistakeCase{"VcLabel",
                    R"(mpls { id: 9 name: "x" interface: "eth0" ^vc_label: -1 tunnel: "t1" })",
                    "vc_label -1 is out of range; use 0 to 1048575"},
        MistakeCase{"PassThroughValue",
                    R"(mpls { id: 9 name: "x" interface: "eth0" ^pass_through_value: -1 })",
                    "pass_through_value -1 is out of range; use 0 to 4294967295"},
        MistakeCase{"InterfaceLimId", R"(interface { name: "x" ^lim_id: -1 })",
                    "lim_id -1 is out of range; use 0 to 4294967295"},
        MistakeCase{"InterfaceType", R"(interface { name: "x" lim_id: 2 ^type: 256 })",
                    "type 256 is out of range; use 0 to 255"},
        MistakeCase{"InterfaceIfindex", R"(interface { name: "x" lim_id: 2 ^ifindex: -1 })",
                    "ifindex -1 is out of range; use 0 to 4294967295"},
        MistakeCase{"VrfVrfId", R"(vrf { id: 9 name: "x" ^vrf_id: -1 })",
                    "vrf_id -1 is out of range; use 0 to 4294967295"},
        MistakeCase{"VlanIdZero", R"(vlan { ^id: 0 name: "x" interface: "eth0" })",
                    "id 0 is out of range; use 1 to 4294967295"},
        MistakeCase{"EcmpIdTooGreat", R"(ecmp { ^id: 4294967296 name: "x" })",
                    "id 4294967296 is out of range; use 1 to 4294967295"},
        MistakeCase{"VrfIdZero", R"(vrf { ^id: 0 name: "x" vrf_id: 6 })",
                    "id 0 is out of range; use 1 to 4294967295"}),
    CaseName);

INSTANTIATE_TEST_SUITE_P(
    Missing, MistakeTest,
    ::testing::Values(
        MistakeCase{"InterfaceName", "^interface { lim_id: 2 }",
                    R"(interface has no name; add name: "...")"},
        MistakeCase{"InterfaceLimId", R"(^interface { name: "x" })",
                    R"(interface "x" has no lim_id; add lim_id: N with N from 0 to 4294967295)"},
        MistakeCase{"VrfVrfId", R"(^vrf { id: 9 name: "x" })",
                    R"(vrf "x" has no vrf_id; add vrf_id: N with N from 0 to 4294967295)"},
        MistakeCase{"VrfName", "^vrf { id: 9 vrf_id: 6 }", R"(vrf has no name; add name: "...")"},
        MistakeCase{"VlanId", R"(^vlan { name: "x" interface: "eth0" })",
                    R"(vlan "x" has no id; add id: N with N from 1 to 4294967295)"},
        MistakeCase{"HostName", R"(^host { id: 9 interface: "eth0" })",
                    R"(host has no name; add name: "...")"},
        MistakeCase{"EmptyName", R"(host { id: 9 ^name: "" interface: "eth0" })",
                    R"(host has no name; add name: "...")"},
        MistakeCase{"VlanInterface", R"(^vlan { id: 9 name: "x" })",
                    R"(vlan "x" has no interface; add interface: "...")"},
        MistakeCase{"HostInterface", R"(^host { id: 9 name: "x" })",
                    R"(host "x" has no interface; add interface: "...")"},
        MistakeCase{"MplsInterface", R"(^mpls { id: 9 name: "x" })",
                    R"(mpls "x" has no interface; add interface: "...")"},
        MistakeCase{"EcmpId", R"(^ecmp { name: "x" })",
                    R"(ecmp "x" has no id; add id: N with N from 1 to 4294967295)"},
        MistakeCase{"SecondOfAList", R"(ecmp: [{ id: 9 name: "x" }, { id: 10 ^name: "" }])",
                    R"(ecmp has no name; add name: "...")"}),
    CaseName);

INSTANTIATE_TEST_SUITE_P(
    Value, MistakeTest,
    ::testing::Values(
        MistakeCase{
            "MacTooShort", R"(vlan { id: 9 name: "x" interface: "eth0" ^source_mac: "02:00" })",
            R"(bad MAC address "02:00"; write six hexadecimal pairs with colons, as in "02:00:00:00:01:0a")"},
        MistakeCase{
            "MacTooLong",
            R"(host { id: 9 name: "x" interface: "eth0" ^mac: "02:00:00:00:01:0a:0b" })",
            R"(bad MAC address "02:00:00:00:01:0a:0b"; write six hexadecimal pairs with colons, as in "02:00:00:00:01:0a")"},
        MistakeCase{
            "MacNotHexadecimal",
            R"(mpls { id: 9 name: "x" interface: "eth0" ^mac: "02:00:00:00:01:0g" })",
            R"(bad MAC address "02:00:00:00:01:0g"; write six hexadecimal pairs with colons, as in "02:00:00:00:01:0a")"},
        MistakeCase{
            "MacWithDashes",
            R"(host { id: 9 name: "x" interface: "eth0" ^mac: "02-00-00-00-01-0a" })",
            R"(bad MAC address "02-00-00-00-01-0a"; write six hexadecimal pairs with colons, as in "02:00:00:00:01:0a")"},
        MistakeCase{
            "MacZero", R"(host { id: 9 name: "x" interface: "eth0" ^mac: "00:00:00:00:00:00" })",
            R"(mac "00:00:00:00:00:00" is zero; give the next hop's own address, whose first byte is even)"},
        MistakeCase{
            "MacBroadcast",
            R"(mpls { id: 9 name: "x" interface: "eth0" ^mac: "ff:FF:ff:ff:ff:ff" })",
            R"(mac "ff:FF:ff:ff:ff:ff" is the broadcast address; give the next hop's own address, whose first byte is even)"},
        MistakeCase{
            "MacMulticast",
            R"(host { id: 9 name: "x" interface: "eth0" ^mac: "01:00:5e:00:00:01" })",
            R"(mac "01:00:5e:00:00:01" is a multicast address; give the next hop's own address, whose first byte is even)"},
        MistakeCase{
            "NameWithASpaceMore", R"(host { id: 9 ^name: "v1 " interface: "eth0" })",
            R"(name "v1 " differs from "v1" at line 2 in spaces only; give every destination a name of its own)"},
        MistakeCase{
            "NameWithTwoSpaces",
            "vrf { id: 8 name: \"a b\" vrf_id: 8 }\n"
            R"(vrf { id: 9 ^name: "a  b" vrf_id: 9 })",
            R"(name "a  b" differs from "a b" at line 4 in spaces only; give every vrf a name of its own)"},
        MistakeCase{
            "Ipv4TooShort", R"(host { id: 9 name: "x" interface: "eth0" ^ip: "192.0.2" })",
            R"(bad IP address "192.0.2"; write IPv4, as in "192.0.2.1", or IPv6, as in "2001:db8::1")"},
        MistakeCase{
            "IpWithZeroByte", R"(host { id: 9 name: "x" interface: "eth0" ^ip: "::1\0002" })",
            R"(bad IP address "::1\x002"; write IPv4, as in "192.0.2.1", or IPv6, as in "2001:db8::1")"},
        MistakeCase{
            "IpEmpty", R"(host { id: 9 name: "x" interface: "eth0" ^ip: "" })",
            R"(bad IP address ""; write IPv4, as in "192.0.2.1", or IPv6, as in "2001:db8::1")"},
        MistakeCase{"Flag", R"(host { id: 9 name: "x" interface: "eth0" ^flag: "to-cup" })",
                    R"(unknown flag "to-cup"; use one of: none, drop, to-cpu)"},
        MistakeCase{"VlanCapability",
                    R"(vlan { id: 9 name: "x" interface: "eth0" ^capability: "Routed" })",
                    R"(unknown capability "Routed"; use one of: none, routed)"},
        MistakeCase{
            "MplsCapability",
            "mpls { id: 9 name: \"x\" interface: \"eth0\" capability: \"push\"\n"
            "  ^capability: \"pop\" }",
            R"(unknown capability "pop"; use one of: none, protection, swap, push, forward, vc-label)"},
        MistakeCase{
            "NameWithControlCharacter", R"(ecmp { id: 9 ^name: "a\nb" })",
            R"(name "a\nb" is not plain text; write UTF-8 without control or invisible characters)"},
        MistakeCase{
            "NameWithC1Control", R"(ecmp { id: 9 ^name: "a\302\2332Jb" })",
            R"(name "a\u009b2Jb" is not plain text; write UTF-8 without control or invisible characters)"},
        MistakeCase{
            "NameThatReordersTheLine", "ecmp { id: 9 ^name: \"a\u202eb\" }",
            R"(name "a\u202eb" is not plain text; write UTF-8 without control or invisible characters)"},
        MistakeCase{
            "ListValueNotUtf8",
            R"(vlan { id: 9 name: "x" interface: "eth0" list_value: "a" ^list_value: "\303" })",
            R"(list_value "\xc3" is not plain text; write UTF-8 without control or invisible characters)"}),
    CaseName);

INSTANTIATE_TEST_SUITE_P(
    UsedTwice, MistakeTest,
    ::testing::Values(
        MistakeCase{
            "DestinationId", R"(ecmp { ^id: 1 name: "x" })",
            R"(id 1 is used twice, first at line 2; give every destination an id of its own)"},
        MistakeCase{"EarlierKindFurtherDown", R"(vlan { ^id: 4 name: "x" interface: "eth0" })",
                    "id 4 is used twice, first at line 3; give every destination an id of its "
                    "own"},
        MistakeCase{"VrfId", R"(vrf { ^id: 1 name: "x" vrf_id: 6 })",
                    "id 1 is used twice, first at line 1; give every vrf an id of its own"},
        MistakeCase{"DestinationName", R"(host { id: 9 ^name: "v1" interface: "eth0" })",
                    R"(name "v1" is used twice, first at line 2; give every destination a )"
                    "name of its own"},
        MistakeCase{"VrfName", R"(vrf { id: 9 ^name: "blue" vrf_id: 6 })",
                    R"(name "blue" is used twice, first at line 1; give every vrf a name )"
                    "of its own"},
        MistakeCase{"InterfaceName", R"(interface { ^name: "eth0" lim_id: 2 })",
                    R"(name "eth0" is used twice, first at line 1; give every interface a )"
                    "name of its own"},
        MistakeCase{"LimId", R"(interface { name: "eth1" ^lim_id: 1 })",
                    "lim_id 1 is used twice, first at line 1; give every interface a lim_id "
                    "of its own"}),
    CaseName);

INSTANTIATE_TEST_SUITE_P(
    Reference, MistakeTest,
    ::testing::Values(
        MistakeCase{
            "UnknownInterface", R"(vlan { id: 9 name: "x" ^interface: "eth9" })",
            R"(unknown interface "eth9"; add an interface { name: "eth9" ... } or use one of: eth0)"},
        MistakeCase{"UnknownVlanOfHost",
                    R"(host { id: 9 name: "x" interface: "eth0" ^vlan: "v9" })",
                    R"(unknown vlan "v9"; add a vlan { name: "v9" ... } or use one of: v1)"},
        MistakeCase{"UnknownVlanOfMpls",
                    R"(mpls { id: 9 name: "x" interface: "eth0" ^vlan: "v9" })",
                    R"(unknown vlan "v9"; add a vlan { name: "v9" ... } or use one of: v1)"},
        MistakeCase{"VlanIsAHost", R"(host { id: 9 name: "x" interface: "eth0" ^vlan: "h1" })",
                    R"(vlan "h1" is a host; name a vlan instead, one of: v1)"},
        MistakeCase{"UnknownTunnel",
                    R"(mpls { id: 9 name: "x" interface: "eth0" vc_label: 1 ^tunnel: "t9" })",
                    R"(unknown tunnel "t9"; add an mpls { name: "t9" ... } or use one of: t1)"},
        MistakeCase{"TunnelIsACircuit",
                    R"(mpls { id: 9 name: "x" interface: "eth0" vc_label: 1 ^tunnel: "x" })",
                    R"(tunnel "x" is a virtual circuit; name a tunnel instead, one of: t1)"},
        MistakeCase{"NeighborIsAVlan",
                    R"(mpls { id: 9 name: "x" interface: "eth0" ^neighbor: "v1" })",
                    R"(neighbor "v1" is a vlan; name a host instead, one of: h1)"},
        MistakeCase{
            "UnknownMember", R"(ecmp { id: 9 name: "x" member: "v1" ^member: "v9" })",
            R"(unknown member "v9"; add a vlan, host or mpls { name: "v9" ... } or use one of: v1, h1, t1)"},
        MistakeCase{
            "UnknownMemberInAList", R"(ecmp { id: 9 name: "x" ^member: ["v1", "v9"] })",
            R"(unknown member "v9"; add a vlan, host or mpls { name: "v9" ... } or use one of: v1, h1, t1)"},
        MistakeCase{
            "MemberIsAnEcmpGroup", R"(ecmp { id: 9 name: "x" ^member: "g1" })",
            R"(member "g1" is an ecmp group; name a vlan, host or mpls instead, one of: v1, h1, t1)"},
        MistakeCase{
            "ManyCandidates",
            "vlan { id: 11 name: \"v2\" interface: \"eth0\" }\n"
            "vlan { id: 12 name: \"v3\" interface: \"eth0\" }\n"
            "vlan { id: 13 name: \"v4\" interface: \"eth0\" }\n"
            "vlan { id: 14 name: \"v5\" interface: \"eth0\" }\n"
            "vlan { id: 15 name: \"v6\" interface: \"eth0\" }\n"
            R"(host { id: 9 name: "x" interface: "eth0" ^vlan: "v9" })",
            R"(unknown vlan "v9"; add a vlan { name: "v9" ... } or use one of: v1, v2, v3, v4, v5, ...)"},
        MistakeCase{"CircuitWithoutTunnel",
                    R"(mpls { id: 9 name: "x" interface: "eth0" ^vc_label: 1 })",
                    R"(mpls "x" has vc_label but no tunnel; add tunnel: "..." or remove vc_label)"},
        MistakeCase{
            "CircuitOnAVlan",
            R"(mpls { id: 9 name: "x" interface: "eth0" vc_label: 1 tunnel: "t1" ^vlan: "v1" })",
            R"(mpls "x" has vc_label and vlan; remove vlan, because a virtual circuit rides on its tunnel, or remove vc_label)"},
        MistakeCase{"TunnelOfNoCircuit",
                    R"(mpls { id: 9 name: "x" interface: "eth0" ^tunnel: "t1" })",
                    R"(mpls "x" has tunnel but no vc_label; add vc_label: N or remove tunnel)"}),
    CaseName);

INSTANTIATE_TEST_SUITE_P(
    Syntax, MistakeTest,
    ::testing::Values(
        MistakeCase{
            "UnknownField", R"(vlan { id: 9 ^mtuu: 1500 })",
            R"(vlan has no field "mtuu"; use one of: id, name, interface, source_mac, vrf, mtu, capability, list_value)"},
        MistakeCase{"UnknownEntry", R"(^vlna { id: 9 })",
                    "a site file has no field \"vlna\"; use one of: interface, vrf, vlan, host, "
                    "mpls, ecmp, "
                    "object_count"},
        MistakeCase{"UnknownFieldBetweenCommas", R"(vrf { id: 9, ^nmae: "x", vrf_id: 5 })",
                    R"(vrf has no field "nmae"; use one of: id, name, vrf_id)"},
        MistakeCase{
            "FieldOfTheFileTwice",
            "object_count: 9 vrf { id: 9 name: \"x\" vrf_id: 6 } object_count^: 9",
            R"(syntax error: Non-repeated field "object_count" is specified multiple times; write numbers as in mtu: 1500, text as in name: "core-a", entries as in vlan { ... })"},
        MistakeCase{
            "TextForANumber", R"(vlan { id: ^"nine" })",
            R"(syntax error: Expected integer, got: "nine"; write numbers as in mtu: 1500, text as in name: "core-a", entries as in vlan { ... })"},
        MistakeCase{
            "NumberForText", R"(vlan { name: ^9 })",
            R"(syntax error: Expected string, got: 9; write numbers as in mtu: 1500, text as in name: "core-a", entries as in vlan { ... })"}),
    CaseName);

TEST(SiteReaderTest, WithoutCandidatesOnlyTheEntryToAddIsNamed) {
  EXPECT_EQ(
      Mistakes(ParseSite(R"(vlan { id: 1 name: "v1" interface: "eth0" })")),
      "site.txtpb:1:25: unknown interface \"eth0\"; add an interface { name: \"eth0\" ... }\n");
}

// The line and column of each mistake.
std::vector<std::pair<int, int>> Places(const SiteOrMistakes& result) {
  std::vector<std::pair<int, int>> places;
  if (const auto* errors = std::get_if<std::vector<Diagnostic>>(&result)) {
    for (const Diagnostic& error : *errors)
      places.emplace_back(error.place.line, error.place.column);
  }
  return places;
}

TEST(SiteReaderTest, EverySyntaxErrorIsReportedAndHidesOtherMistakes) {
  EXPECT_THAT(Places(ParseSite("vlan { id: 0 }\nhost { id: 0 }\nmpls {{\nvlna {}\n")),
              ElementsAre(std::pair(3, 7), std::pair(4, 1)));
}

TEST(SiteReaderTest, AnEntryWithoutEndDoesNotHideTheNextOnes) {
  EXPECT_EQ(Mistakes(ParseSite("vlan { id: 1\n\tmtuu: 2\nhost {\n\tid: \"x\" nmae: \"y\"\n}\n"
                               "vrf { id: 2 iid: 3 vrf: 4 }\n")),
            R"(site.txtpb:1:1: the entry has no end; write } after its last field
site.txtpb:2:9: vlan has no field "mtuu"; use one of: id, name, interface, source_mac, vrf, mtu, capability, list_value
site.txtpb:4:13: syntax error: Expected integer, got: "x"; write numbers as in mtu: 1500, text as in name: "core-a", entries as in vlan { ... }
site.txtpb:6:13: vrf has no field "iid"; use one of: id, name, vrf_id
site.txtpb:6:20: vrf has no field "vrf"; use one of: id, name, vrf_id
)");
}

TEST(SiteReaderTest, EntriesOnOneLineKeepTheirColumns) {
  EXPECT_THAT(
      Places(ParseSite("\tvrf { iid: 1 } vrf {\tiid: 2 }, vlna { id: 3 }; } vrf { iid: 4 }")),
      ElementsAre(std::pair(1, 15), std::pair(1, 33), std::pair(1, 43), std::pair(1, 59),
                  std::pair(1, 67)));
}

TEST(SiteReaderTest, DeeplyNestedUnknownFieldsAreReported) {
  std::string text = "vrf { id: \"x\" }\nvlan { ";
  for (int i = 0; i < 100'000; ++i) text += "a { ";
  EXPECT_THAT(Places(ParseSite(text)), ElementsAre(std::pair(1, 11), std::pair(2, 8)));
}

TEST(SiteReaderTest, EverySyntaxErrorHasAText) {
  for (const char* text : {"vlan {", "vlan }", "vlan { id: }", "vlan { name: \"a }", "\x01", "}",
                           "vlan { id: 1 id: 2 }", "vlan { id: 99999999999999999999 }"}) {
    const auto result = ParseSite(text);
    const auto* errors = std::get_if<std::vector<Diagnostic>>(&result);
    ASSERT_NE(errors, nullptr) << text;
    ASSERT_EQ(errors->size(), 1U) << text;
    EXPECT_EQ(errors->front().place.line, 1) << text;
    EXPECT_GT(errors->front().place.column, 0) << text;
    EXPECT_NE(errors->front().text.find("; write "), std::string::npos) << errors->front().text;
  }
}

TEST(SiteReaderTest, AllMistakesAreReportedInTheOrderOfTheirPlaces) {
  EXPECT_EQ(
      Mistakes(ParseSite(R"(ecmp { id: 5 name: "g" member: "nobody" }
interface { name: "eth0" lim_id: 1 type: 999 }
mpls { id: 0 name: "c" interface: "eth0" vc_label: 7 }
host { id: 5 name: "h" interface: "eth1" mac: "no" ip: "no" flag: "no" }
vlan { name: "v" interface: "eth0" mtu: -1 }
vrf { id: 1 name: "blue" }
)")),
      R"(site.txtpb:1:24: unknown member "nobody"; add a vlan, host or mpls { name: "nobody" ... } or use one of: v, h, c
site.txtpb:2:36: type 999 is out of range; use 0 to 255
site.txtpb:3:8: id 0 is out of range; use 1 to 4294967295
site.txtpb:3:42: mpls "c" has vc_label but no tunnel; add tunnel: "..." or remove vc_label
site.txtpb:4:8: id 5 is used twice, first at line 1; give every destination an id of its own
site.txtpb:4:24: unknown interface "eth1"; add an interface { name: "eth1" ... } or use one of: eth0
site.txtpb:4:42: bad MAC address "no"; write six hexadecimal pairs with colons, as in "02:00:00:00:01:0a"
site.txtpb:4:52: bad IP address "no"; write IPv4, as in "192.0.2.1", or IPv6, as in "2001:db8::1"
site.txtpb:4:61: unknown flag "no"; use one of: none, drop, to-cpu
site.txtpb:5:1: vlan "v" has no id; add id: N with N from 1 to 4294967295
site.txtpb:5:36: mtu -1 is out of range; use 0 to 4294967295
site.txtpb:6:1: vrf "blue" has no vrf_id; add vrf_id: N with N from 0 to 4294967295
)");
}

TEST(SiteReaderTest, EveryUseButTheFirstIsReported) {
  EXPECT_EQ(
      Mistakes(ParseSite(R"(ecmp { id: 9 name: "x" }
ecmp { id: 9 name: "y" }
ecmp { id: 9 name: "z" }
)")),
      R"(site.txtpb:2:8: id 9 is used twice, first at line 1; give every destination an id of its own
site.txtpb:3:8: id 9 is used twice, first at line 1; give every destination an id of its own
)");
}

// The findings of a file with this text.
SiteFindings Check(const std::string& text) {
  const std::string path = ::testing::TempDir() + "checked.txtpb";
  std::ofstream(path) << text;
  return CheckSiteFile(path);
}

/// The objects by id.
Site Sorted(Site site) {
  const auto sort = [](auto* objects) {
    std::sort(objects->begin(), objects->end(),
              [](const auto& a, const auto& b) { return a.id < b.id; });
  };
  std::sort(site.interfaces.begin(), site.interfaces.end(),
            [](const auto& a, const auto& b) { return a.lim_id < b.lim_id; });
  sort(&site.vrfs);
  sort(&site.vlans);
  sort(&site.hosts);
  sort(&site.mpls);
  sort(&site.ecmps);
  return site;
}

// Entries may come before or after those that they refer to.
TEST(SiteReaderTest, TheOrderOfTheEntriesDoesNotMatter) {
  for (std::uint32_t seed = 0; seed < 100; ++seed) {
    const Site site = GenerateSite(seed, 1 + seed);
    std::istringstream text(WriteSite(site));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    std::shuffle(lines.begin(), lines.end(), std::mt19937(seed));
    std::string shuffled;
    for (const std::string& line : lines) shuffled += line + '\n';
    ASSERT_EQ(Sorted(SiteOf(ParseSite(shuffled))), Sorted(site)) << shuffled;
  }
}

TEST(CheckSiteFileTest, AGoodFileHasObjectsAndNoFindings) {
  const SiteFindings findings = Check(kSite);
  EXPECT_EQ(findings.objects, 5U);
  EXPECT_THAT(findings.diagnostics, IsEmpty());
}

TEST(CheckSiteFileTest, AVrfNumberThatNoVrfHasIsAWarning) {
  const SiteFindings findings = Check(std::string(kSite) +
                                      "vlan { id: 9 name: \"x\" interface: \"eth0\" vrf: 5 }\n"
                                      "host { id: 10 name: \"y\" interface: \"eth0\" vrf: 0 }\n");
  EXPECT_EQ(findings.objects, 7U);
  ASSERT_EQ(findings.diagnostics.size(), 1U);
  EXPECT_EQ(FormatDiagnostic("f", findings.diagnostics.front()),
            "f:5:43: warning: no vrf has vrf_id 0; add vrf { vrf_id: 0 ... } or correct vrf");
}

TEST(CheckSiteFileTest, ANeighbourThatDoesNotExistIsAWarning) {
  const SiteFindings findings =
      Check(std::string(kSite) +
            "mpls { id: 9 name: \"x\" interface: \"eth0\" neighbor: \"h1\" }\n"
            "mpls { id: 10 name: \"y\" interface: \"eth0\" neighbor: \"h2\" }\n");
  ASSERT_EQ(findings.diagnostics.size(), 1U);
  EXPECT_EQ(FormatDiagnostic("f", findings.diagnostics.front()),
            R"(f:5:43: warning: no host has the name "h2", so mpls "y" is inactive; )"
            R"(add host { name: "h2" ... } or correct neighbor)");
}

TEST(ReadSiteFileTest, AMissingFileIsOneError) {
  EXPECT_EQ(Mistakes(ReadSiteFile("/nonexistent.txtpb"), "/nonexistent.txtpb"),
            "/nonexistent.txtpb: cannot read the file: No such file or directory; give the path of "
            "a readable site file\n");
}

TEST(ReadSiteFileTest, ADirectoryIsOneError) {
  EXPECT_EQ(Mistakes(ReadSiteFile("/"), "/"),
            "/: cannot read the file: Is a directory; give the path of a readable site file\n");
}

}  // namespace
}  // namespace reference
