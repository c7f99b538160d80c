#ifndef ZUSKUX_REFERENCE_SITE_SITE_H_
#define ZUSKUX_REFERENCE_SITE_SITE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dest_mng.pb.h"

namespace reference {

// A site: what the operator wants the network element to forward. Plain values, with every name of
// the site file resolved. The ids of destinations (VLAN, host, MPLS, ECMP) are database ids in one
// number space; 0 means none. VRFs have their own number space.

/// Six bytes in transmission order.
using Mac = std::array<std::uint8_t, 6>;

struct SiteInterface {
  std::string name;
  std::uint32_t lim_id = 0;
  std::uint8_t type = 0;
  std::uint32_t ifindex = 0;
};

struct SiteVrf {
  std::uint32_t id = 0;
  std::string name;
  std::uint32_t vrf_id = 0;
};

struct SiteVlan {
  std::uint32_t id = 0;
  std::string name;
  std::uint32_t lim_id = 0;
  std::optional<Mac> source_mac;
  std::optional<std::uint32_t> vrf;
  std::optional<std::uint32_t> mtu;
  std::vector<dest_mng::VlanCapabilities> capabilities;
  std::vector<std::string> list_values;
};

struct SiteHost {
  std::uint32_t id = 0;
  std::string name;
  std::uint32_t lim_id = 0;
  std::optional<Mac> mac;
  /// 4 or 16 bytes in network byte order; empty if the site has none.
  std::string ip_address;
  std::optional<std::uint32_t> vrf;
  /// The VLAN destination it rides on.
  std::uint32_t vlan = 0;
  std::vector<dest_mng::ActionFlags> flags;
};

struct SiteMpls {
  std::uint32_t id = 0;
  std::string name;
  std::uint32_t lim_id = 0;
  std::optional<Mac> mac;
  std::optional<std::uint32_t> label;
  /// Present in virtual circuits, which ride on `tunnel`; other MPLS destinations ride on `vlan`.
  std::optional<std::uint32_t> vc_label;
  std::uint32_t vlan = 0;
  std::uint32_t tunnel = 0;
  /// The neighbour's host destination. 0 if the site does not have the named one; the destination
  /// is then inactive and drops its packets.
  std::uint32_t neighbor = 0;
  std::optional<std::uint32_t> pass_through_value;
  std::vector<dest_mng::MplsCapabilities> capabilities;
};

struct SiteEcmp {
  std::uint32_t id = 0;
  std::string name;
  /// Destination ids in the group's order; an id may be repeated.
  std::vector<std::uint32_t> members;
};

struct Site {
  std::vector<SiteInterface> interfaces;
  std::vector<SiteVrf> vrfs;
  std::vector<SiteVlan> vlans;
  std::vector<SiteHost> hosts;
  std::vector<SiteMpls> mpls;
  std::vector<SiteEcmp> ecmps;
};

/// Calls the generic `use` with each list of objects, that is every member except the interfaces.
template <typename Use>
void ForEachList(const Site& site, Use use) {
  use(site.vrfs);
  use(site.vlans);
  use(site.hosts);
  use(site.ecmps);
  use(site.mpls);
}

/// The number of objects: VRFs and destinations.
std::size_t CountObjects(const Site& site);

// Equal if all fields are.
bool operator==(const SiteInterface& a, const SiteInterface& b);
bool operator==(const SiteVrf& a, const SiteVrf& b);
bool operator==(const SiteVlan& a, const SiteVlan& b);
bool operator==(const SiteHost& a, const SiteHost& b);
bool operator==(const SiteMpls& a, const SiteMpls& b);
bool operator==(const SiteEcmp& a, const SiteEcmp& b);
bool operator==(const Site& a, const Site& b);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_SITE_H_
