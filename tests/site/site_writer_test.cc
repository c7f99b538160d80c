#include "reference/site/site_writer.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/site/read_site.h"

namespace reference {
namespace {

TEST(SiteWriterTest, WritesAnEntryPerLineWithNamesForIds) {
  Site site;
  site.interfaces = {{"eth0", 16777217, 1, 4}};
  site.vrfs = {{1, "blue", 10}};
  site.vlans = {{10,
                 "core-a",
                 16777217,
                 Mac{0x02, 0, 0, 0, 0x01, 0x0a},
                 10,
                 1500,
                 {dest_mng::VLAN_CAPABILITY_ROUTED},
                 {"eth0.100"}},
                {11, "Zürich \"2\"", 16777217, {}, {}, {}, {}, {}}};
  site.hosts = {{101,
                 "pe2",
                 16777217,
                 Mac{0x02, 0, 0, 0, 0x03, 0xff},
                 std::string("\xc0\x00\x02\x01", 4),
                 10,
                 10,
                 {dest_mng::ACTION_DROP, dest_mng::ACTION_TO_CPU}}};
  site.mpls = {{201,
                "lsp",
                16777217,
                Mac{0x02, 0, 0, 0, 0x03, 0xff},
                1001,
                {},
                10,
                0,
                101,
                7,
                {dest_mng::MPLS_CAPABILITY_PUSH}},
               {202, "vc", 16777217, {}, {}, 55, 0, 201, 0, {}, {}}};
  site.ecmps = {{301, "to-core", {101, 201, 101}}, {302, "empty", {}}};

  const std::string text = WriteSite(site);
  EXPECT_EQ(text, R"(object_count: 8
interface { name: "eth0" lim_id: 16777217 type: 1 ifindex: 4 }
vrf { id: 1 name: "blue" vrf_id: 10 }
vlan { id: 10 name: "core-a" interface: "eth0" source_mac: "02:00:00:00:01:0a" vrf: 10 mtu: 1500 capability: "routed" list_value: "eth0.100" }
vlan { id: 11 name: "Zürich \"2\"" interface: "eth0" }
host { id: 101 name: "pe2" interface: "eth0" mac: "02:00:00:00:03:ff" ip: "192.0.2.1" vrf: 10 vlan: "core-a" flag: "drop" flag: "to-cpu" }
mpls { id: 201 name: "lsp" interface: "eth0" mac: "02:00:00:00:03:ff" label: 1001 vlan: "core-a" neighbor: "pe2" pass_through_value: 7 capability: "push" }
mpls { id: 202 name: "vc" interface: "eth0" vc_label: 55 tunnel: "lsp" }
ecmp { id: 301 name: "to-core" member: "pe2" member: "lsp" member: "pe2" }
ecmp { id: 302 name: "empty" }
)");
  EXPECT_EQ(SiteOf(ParseSite(text)), site);
}

TEST(SiteWriterTest, AnEmptySiteHasACount) { EXPECT_EQ(WriteSite(Site()), "object_count: 0\n"); }

}  // namespace
}  // namespace reference
