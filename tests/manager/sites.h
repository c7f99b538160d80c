#ifndef ZUSKUX_TESTS_MANAGER_SITES_H_
#define ZUSKUX_TESTS_MANAGER_SITES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "reference/site/site.h"

namespace reference {

// Entries of sites; the parameters are what the tests vary. A name is made of kind and id.

inline SiteVrf VrfEntry(std::uint32_t id, std::uint32_t vrf_id) {
  return {id, "vrf-" + std::to_string(id), vrf_id};
}

inline SiteVlan VlanEntry(std::uint32_t id, std::uint32_t mtu = 1500) {
  SiteVlan vlan;
  vlan.id = id;
  vlan.name = "vlan-" + std::to_string(id);
  vlan.mtu = mtu;
  return vlan;
}

inline SiteHost HostEntry(std::uint32_t id, std::uint32_t vlan) {
  SiteHost host;
  host.id = id;
  host.name = "host-" + std::to_string(id);
  host.vlan = vlan;
  return host;
}

inline SiteMpls TunnelEntry(std::uint32_t id, std::uint32_t vlan, std::uint32_t neighbor) {
  SiteMpls tunnel;
  tunnel.id = id;
  tunnel.name = "tunnel-" + std::to_string(id);
  tunnel.vlan = vlan;
  tunnel.neighbor = neighbor;
  return tunnel;
}

inline SiteMpls CircuitEntry(std::uint32_t id, std::uint32_t tunnel, std::uint32_t neighbor) {
  SiteMpls circuit;
  circuit.id = id;
  circuit.name = "circuit-" + std::to_string(id);
  circuit.vc_label = 16;
  circuit.tunnel = tunnel;
  circuit.neighbor = neighbor;
  return circuit;
}

inline SiteEcmp EcmpEntry(std::uint32_t id, const std::vector<std::uint32_t>& members) {
  return {id, "ecmp-" + std::to_string(id), members};
}

/// One or two objects of each kind: VRF 1, VLANs 10 and 11, hosts 20 and 21, tunnel 41 on VLAN 11,
/// circuit 40 on it, ECMP group 30 of host 20 and circuit 40.
inline Site SiteOfAllKinds() {
  Site site;
  site.vrfs = {VrfEntry(1, 7)};
  site.vlans = {VlanEntry(10), VlanEntry(11)};
  site.hosts = {HostEntry(20, 10), HostEntry(21, 11)};
  site.ecmps = {EcmpEntry(30, {20, 40})};
  site.mpls = {CircuitEntry(40, 41, 21), TunnelEntry(41, 11, 21)};
  return site;
}

}  // namespace reference

#endif  // ZUSKUX_TESTS_MANAGER_SITES_H_
