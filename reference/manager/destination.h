#ifndef ZUSKUX_REFERENCE_MANAGER_DESTINATION_H_
#define ZUSKUX_REFERENCE_MANAGER_DESTINATION_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "reference/hal/hal_request.h"
#include "reference/site/site.h"

namespace reference {

/// An object as the library's adapters take it. The alternatives are in the order of `HalKind`; the
/// pointers are never null.
using Destination = std::variant<dest_mng::VrfData, std::unique_ptr<dest_mng::DbVlanObject>,
                                 std::unique_ptr<dest_mng::DbHostObject>, dest_mng::EcmpData,
                                 std::unique_ptr<dest_mng::DbMplsObject>>;

inline HalKind KindOf(const Destination& destination) {
  return static_cast<HalKind>(destination.index());
}

// The object that stands for a site's entry. A lim id becomes its 4 bytes in host byte order.
Destination MakeDestination(const SiteVrf& vrf);
Destination MakeDestination(const SiteVlan& vlan);
Destination MakeDestination(const SiteHost& host);
Destination MakeDestination(const SiteMpls& mpls);
Destination MakeDestination(const SiteEcmp& ecmp);

/// Whether the adapters are given the same: equal records and equal attributes.
bool SameContent(const Destination& a, const Destination& b);

/// An MPLS destination that rides on a tunnel.
bool IsVirtualCircuit(const Destination& destination);

/// An MPLS destination whose packets are dropped because it has no active neighbour.
bool IsInactive(const Destination& destination);

/// Ids of the destinations that must be in the HAL before this one: a host's VLAN, the VLAN or
/// tunnel under an MPLS destination, the members of an ECMP group in their order, each once.
std::vector<std::uint32_t> ReferencedIds(const Destination& destination);

/// The host destination of an MPLS destination's neighbour; nothing for the others.
std::optional<std::uint32_t> NeighborId(const Destination& destination);

/// The numeric VRF id of a VLAN destination that has one; nothing for the others.
std::optional<std::uint32_t> VrfIdOf(const Destination& destination);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_DESTINATION_H_
