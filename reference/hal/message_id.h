#ifndef ZUSKUX_REFERENCE_HAL_MESSAGE_ID_H_
#define ZUSKUX_REFERENCE_HAL_MESSAGE_ID_H_

#include <cstdint>
#include <optional>

#include "base_encap_message.pb.h"

namespace reference {

// The id under which the HAL keeps a message's object, nothing when the message carries none. 0 is
// an id of a VRF, but of no destination.

inline std::optional<std::uint32_t> DestinationId(std::uint32_t id) {
  return id == 0 ? std::nullopt : std::optional(id);
}

inline std::optional<std::uint32_t> IdOf(const encapsulation::VrfMessage& vrf) {
  return vrf.has_vrf_id() ? std::optional(vrf.vrf_id()) : std::nullopt;
}

inline std::optional<std::uint32_t> IdOf(const encapsulation::VlanMessage& vlan) {
  return DestinationId(vlan.vlan_destination_id());
}

inline std::optional<std::uint32_t> IdOf(const encapsulation::HostMessage& host) {
  return DestinationId(host.dest_id());
}

inline std::optional<std::uint32_t> IdOf(const encapsulation::EcmpMessage& ecmp) {
  return DestinationId(ecmp.db_id());
}

inline std::optional<std::uint32_t> IdOf(const encapsulation::MplsMessage& mpls) {
  return DestinationId(mpls.dest_id());
}

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_MESSAGE_ID_H_
