#include "reference/site/site.h"

#include <tuple>

namespace reference {
namespace {

auto Fields(const SiteInterface& interface) {
  return std::tie(interface.name, interface.lim_id, interface.type, interface.ifindex);
}

auto Fields(const SiteVrf& vrf) { return std::tie(vrf.id, vrf.name, vrf.vrf_id); }

auto Fields(const SiteVlan& vlan) {
  return std::tie(vlan.id, vlan.name, vlan.lim_id, vlan.source_mac, vlan.vrf, vlan.mtu,
                  vlan.capabilities, vlan.list_values);
}

auto Fields(const SiteHost& host) {
  return std::tie(host.id, host.name, host.lim_id, host.mac, host.ip_address, host.vrf, host.vlan,
                  host.flags);
}

auto Fields(const SiteMpls& mpls) {
  return std::tie(mpls.id, mpls.name, mpls.lim_id, mpls.mac, mpls.label, mpls.vc_label, mpls.vlan,
                  mpls.tunnel, mpls.neighbor, mpls.pass_through_value, mpls.capabilities);
}

auto Fields(const SiteEcmp& ecmp) { return std::tie(ecmp.id, ecmp.name, ecmp.members); }

auto Fields(const Site& site) {
  return std::tie(site.interfaces, site.vrfs, site.vlans, site.hosts, site.mpls, site.ecmps);
}

}  // namespace

std::size_t CountObjects(const Site& site) {
  std::size_t objects = 0;
  ForEachList(site, [&objects](const auto& entries) { objects += entries.size(); });
  return objects;
}

bool operator==(const SiteInterface& a, const SiteInterface& b) { return Fields(a) == Fields(b); }
bool operator==(const SiteVrf& a, const SiteVrf& b) { return Fields(a) == Fields(b); }
bool operator==(const SiteVlan& a, const SiteVlan& b) { return Fields(a) == Fields(b); }
bool operator==(const SiteHost& a, const SiteHost& b) { return Fields(a) == Fields(b); }
bool operator==(const SiteMpls& a, const SiteMpls& b) { return Fields(a) == Fields(b); }
bool operator==(const SiteEcmp& a, const SiteEcmp& b) { return Fields(a) == Fields(b); }
bool operator==(const Site& a, const Site& b) { return Fields(a) == Fields(b); }

}  // namespace reference
