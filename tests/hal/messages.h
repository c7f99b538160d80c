#ifndef ZUSKUX_TESTS_HAL_MESSAGES_H_
#define ZUSKUX_TESTS_HAL_MESSAGES_H_

#include <cstdint>
#include <vector>

#include "base_encap_message.pb.h"

namespace reference {

// Messages of each kind; the parameters are what the tests vary.

inline encapsulation::VrfMessage Vrf(std::uint32_t id) {
  encapsulation::VrfMessage vrf;
  vrf.set_vrf_id(id);
  return vrf;
}

/// Two VLANs with the same id and a different `mtu` differ in content.
inline encapsulation::VlanMessage Vlan(std::uint32_t id, std::uint32_t mtu = 1500) {
  encapsulation::VlanMessage vlan;
  vlan.set_vlan_destination_id(id);
  vlan.set_mtu(mtu);
  return vlan;
}

/// Rides on no VLAN.
inline encapsulation::HostMessage Host(std::uint32_t id) {
  encapsulation::HostMessage host;
  host.set_dest_id(id);
  return host;
}

inline encapsulation::HostMessage HostOn(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host = Host(id);
  host.set_vlan_dest_id(vlan);
  return host;
}

inline encapsulation::EcmpMessage Ecmp(std::uint32_t id,
                                       const std::vector<std::uint32_t>& members) {
  encapsulation::EcmpMessage ecmp;
  ecmp.set_db_id(id);
  for (const std::uint32_t member : members) ecmp.add_members(member);
  return ecmp;
}

inline encapsulation::MplsMessage MplsOn(std::uint32_t id, std::uint32_t below,
                                         std::uint32_t label = 100) {
  encapsulation::MplsMessage mpls;
  mpls.set_dest_id(id);
  mpls.set_vlan_tunnel_dest_id(below);
  mpls.add_labels(label);
  return mpls;
}

}  // namespace reference

#endif  // ZUSKUX_TESTS_HAL_MESSAGES_H_
