#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_HAI_OBJECT_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_HAI_OBJECT_H_

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "reference/hal/kinds.h"
#include "reference/site/site.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"

namespace reference {

// The manager's part of a kind, besides its row in reference/hal/kinds.h: the alternative of
// `HaiObject`, the adapter, and the function that makes the object.

/// An object as the library's adapters take it. The alternatives are in the order of `HalKind`; the
/// pointers are never null.
using HaiObject = std::variant<dest_mng::VrfData, std::unique_ptr<dest_mng::DbVlanObject>,
                               std::unique_ptr<dest_mng::DbHostObject>, dest_mng::EcmpData,
                               std::unique_ptr<dest_mng::DbMplsObject>>;

inline HalKind KindOf(const HaiObject& object) { return static_cast<HalKind>(object.index()); }

/// The library's adapter for an `Object` of the database, and the adapter's function that
/// translates one. The adapters for VRFs and ECMP groups have another interface; see adapters.cc.
template <typename Object>
struct AdapterOf;
template <>
struct AdapterOf<dest_mng::DbVlanObject> : dest_mng::HaiL3MplsEncapsulationVlan {
  static constexpr auto kTranslate = &HaiL3MplsEncapsulationVlan::TranslateVlanObjectToEncapMessage;
};
template <>
struct AdapterOf<dest_mng::DbHostObject> : dest_mng::HaiL3MplsEncapsulationHost {
  static constexpr auto kTranslate = &HaiL3MplsEncapsulationHost::TranslateHostObjectToEncapMessage;
};
template <>
struct AdapterOf<dest_mng::DbMplsObject> : dest_mng::HaiL3MplsEncapsulationMpls {
  static constexpr auto kTranslate = &HaiL3MplsEncapsulationMpls::TranslateMplsObjectToEncapMessage;
};

// Makes the object that a site's entry describes. A lim id becomes its 4 bytes in host byte order.
dest_mng::VrfData MakeHaiObject(const SiteVrf& vrf);
std::unique_ptr<dest_mng::DbVlanObject> MakeHaiObject(const SiteVlan& vlan);
std::unique_ptr<dest_mng::DbHostObject> MakeHaiObject(const SiteHost& host);
std::unique_ptr<dest_mng::DbMplsObject> MakeHaiObject(const SiteMpls& mpls);
dest_mng::EcmpData MakeHaiObject(const SiteEcmp& ecmp);

/// The kind of the objects that a site's entries of that type describe.
template <typename SiteEntry>
HalKind KindOfEntry() {
  return KindOf(HaiObject(decltype(MakeHaiObject(std::declval<SiteEntry>()))()));
}

/// Whether the adapters would see the same: equal records and equal attributes.
bool SameContent(const HaiObject& a, const HaiObject& b);

/// Whether it is an MPLS destination that drops its packets because it has no active neighbour.
bool IsInactive(const HaiObject& object);

/// The dependency layers: an object refers only to objects of earlier layers.
enum class Layer : std::uint8_t { kVrf, kVlan, kHost, kTunnel, kCircuit, kEcmp };

Layer LayerOf(const HaiObject& object);

/// The kind of a layer's objects, by layer.
inline constexpr std::array kKindOfLayer = {HalKind::kVrf,  HalKind::kVlan, HalKind::kHost,
                                            HalKind::kMpls, HalKind::kMpls, HalKind::kEcmp};

/// Ids of the destinations that the HAL must hold before this one: a host's VLAN, the VLAN or
/// tunnel under an MPLS destination, the members of an ECMP group in order. Each id appears once.
std::vector<std::uint32_t> ReferencedIds(const HaiObject& object);

/// The host destination of an MPLS destination's neighbour; nothing for other destinations.
std::optional<std::uint32_t> NeighborId(const HaiObject& object);

/// The logical interface of a VLAN, host or MPLS destination; nothing for other objects.
std::optional<std::uint32_t> LimIdOf(const HaiObject& object);

/// The VRF number of a VLAN destination that has one; nothing for other destinations.
std::optional<std::uint32_t> VrfIdOf(const HaiObject& object);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_HAI_OBJECT_H_
