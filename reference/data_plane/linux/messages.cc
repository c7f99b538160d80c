#include "reference/data_plane/linux/messages.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/ip.h>
#include <linux/ipv6.h>
#include <linux/lwtunnel.h>
#include <linux/mpls.h>
#include <linux/mpls_iptunnel.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <variant>
#include <vector>

namespace reference {
namespace {

using Attributes = std::array<const nlattr*, 64>;

constexpr std::uint16_t kAdd = NLM_F_CREATE | NLM_F_EXCL;
constexpr std::uint16_t kPut = NLM_F_CREATE | NLM_F_REPLACE;

template <typename Header>
Header* PutHeader(nlmsghdr* message) {
  return static_cast<Header*>(mnl_nlmsg_put_extra_header(message, sizeof(Header)));
}

template <typename Header>
Header GetHeader(const nlmsghdr& message) {
  Header header{};
  std::memcpy(&header, mnl_nlmsg_get_payload(&message),
              std::min(sizeof header, mnl_nlmsg_get_payload_len(&message)));
  return header;
}

int Keep(const nlattr* attribute, void* attributes) {
  auto& kept = *static_cast<Attributes*>(attributes);
  const std::size_t type = mnl_attr_get_type(attribute);
  if (type < kept.size()) kept.at(type) = attribute;
  return MNL_CB_OK;
}

template <typename Header>
Attributes AttributesOf(const nlmsghdr& message) {
  Attributes attributes{};
  mnl_attr_parse(&message, sizeof(Header), Keep, &attributes);
  return attributes;
}

// All null if `nest` is null.
Attributes NestedIn(const nlattr* nest) {
  Attributes attributes{};
  if (nest != nullptr) mnl_attr_parse_nested(nest, Keep, &attributes);
  return attributes;
}

// Zero for a missing or short attribute.
template <typename Value>
Value ValueOf(const nlattr* attribute) {
  Value value{};
  if (attribute != nullptr && mnl_attr_get_payload_len(attribute) >= sizeof value) {
    std::memcpy(&value, mnl_attr_get_payload(attribute), sizeof value);
  }
  return value;
}

template <typename Value>
std::vector<Value> ArrayOf(const nlattr* attribute) {
  std::vector<Value> values;
  if (attribute == nullptr) return values;
  values.resize(mnl_attr_get_payload_len(attribute) / sizeof(Value));
  if (values.empty()) return values;
  std::memcpy(values.data(), mnl_attr_get_payload(attribute), values.size() * sizeof(Value));
  return values;
}

std::string TextOf(const nlattr* attribute) {
  if (attribute == nullptr) return {};
  const std::vector<char> text = ArrayOf<char>(attribute);
  return {text.begin(), std::find(text.begin(), text.end(), '\0')};
}

void PutAddress(nlmsghdr* message, std::uint16_t type, const Ipv6Address& address) {
  mnl_attr_put(message, type, address.size(), address.data());
}

void PutMac(nlmsghdr* message, std::uint16_t type, const MacAddress& mac) {
  mnl_attr_put(message, type, mac.size(), mac.data());
}

void PutNumber(nlmsghdr* message, std::uint16_t type, int number) {
  mnl_attr_put_u32(message, type, static_cast<std::uint32_t>(number));
}

int IndexOf(const DeviceIndexes& indexes, const std::string& name) {
  const auto found = indexes.find(name);
  return found == indexes.end() ? 0 : found->second;
}

// Appends the attributes that are specific to a kind of device.
struct PutKind {
  nlmsghdr* message;
  const DeviceIndexes& indexes;

  void operator()(const VrfDevice& vrf) const {
    nlattr* const info = Start("vrf");
    nlattr* const data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    mnl_attr_put_u32(message, IFLA_VRF_TABLE, vrf.table);
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, info);
  }

  void operator()(const DummyDevice& /*dummy*/) const {
    mnl_attr_nest_end(message, Start("dummy"));
  }

  void operator()(const TaggedDevice& tagged) const {
    PutNumber(message, IFLA_LINK, IndexOf(indexes, tagged.parent));
    nlattr* const info = Start("vlan");
    nlattr* const data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    mnl_attr_put_u16(message, IFLA_VLAN_ID, tagged.tag);
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, info);
  }

  void operator()(const MacvlanDevice& macvlan) const {
    PutNumber(message, IFLA_LINK, IndexOf(indexes, macvlan.parent));
    PutMac(message, IFLA_ADDRESS, macvlan.address);
    if (macvlan.mtu != 0) mnl_attr_put_u32(message, IFLA_MTU, macvlan.mtu);
    if (!macvlan.master.empty()) {
      PutNumber(message, IFLA_MASTER, IndexOf(indexes, macvlan.master));
    }
    nlattr* const info = Start("macvlan");
    nlattr* const data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
    mnl_attr_put_u32(message, IFLA_MACVLAN_MODE, MACVLAN_MODE_PRIVATE);
    mnl_attr_nest_end(message, data);
    mnl_attr_nest_end(message, info);
  }

 private:
  nlattr* Start(const char* kind) const {
    nlattr* const info = mnl_attr_nest_start(message, IFLA_LINKINFO);
    mnl_attr_put_strz(message, IFLA_INFO_KIND, kind);
    return info;
  }
};

// Appends the attributes of a VLAN destination's device that differ.
void PutDifferences(const Link& present, const MacvlanDevice& wanted, const DeviceIndexes& indexes,
                    nlmsghdr* message) {
  // Setting even the same address makes the kernel flush the device's neighbours.
  if (present.address != wanted.address) PutMac(message, IFLA_ADDRESS, wanted.address);
  if (wanted.mtu != 0 && present.mtu != wanted.mtu) {
    mnl_attr_put_u32(message, IFLA_MTU, wanted.mtu);
  }
  if (const int master = IndexOf(indexes, wanted.master); present.master != master) {
    PutNumber(message, IFLA_MASTER, master);
  }
  if (present.alias != wanted.alias) {
    // An empty alias removes it.
    mnl_attr_put(message, IFLA_IFALIAS, wanted.alias.size(), wanted.alias.data());
  }
}

struct PutNexthopKind {
  nlmsghdr* message;
  int device;

  void operator()(const BlackholeNexthop& /*blackhole*/) const {
    mnl_attr_put(message, NHA_BLACKHOLE, 0, nullptr);
  }

  void operator()(const DeviceNexthop& nexthop) const {
    PutNumber(message, NHA_OIF, device);
    if (nexthop.gateway != Ipv6Address{}) PutAddress(message, NHA_GATEWAY, nexthop.gateway);
    if (nexthop.labels.empty()) return;
    std::vector<std::uint32_t> stack;
    stack.reserve(nexthop.labels.size());
    for (const std::uint32_t label : nexthop.labels) stack.push_back(label << MPLS_LS_LABEL_SHIFT);
    stack.back() |= 1U << MPLS_LS_S_SHIFT;
    for (std::uint32_t& entry : stack) entry = htonl(entry);
    mnl_attr_put_u16(message, NHA_ENCAP_TYPE, LWTUNNEL_ENCAP_MPLS);
    nlattr* const encap = mnl_attr_nest_start(message, NHA_ENCAP);
    mnl_attr_put(message, MPLS_IPTUNNEL_DST, stack.size() * sizeof stack[0], stack.data());
    mnl_attr_nest_end(message, encap);
  }

  void operator()(const NexthopGroup& group) const {
    std::vector<nexthop_grp> members;
    members.reserve(group.members.size());
    for (const auto& [id, weight] : group.members) {
      nexthop_grp member{};
      member.id = id;
      member.weight = static_cast<std::uint8_t>(weight - 1);
      members.push_back(member);
    }
    mnl_attr_put(message, NHA_GROUP, members.size() * sizeof(nexthop_grp), members.data());
  }
};

nlmsghdr* StartLink(std::uint16_t type, std::uint16_t flags, int index, MessageBatch* batch) {
  nlmsghdr* const message = batch->Start(type, flags);
  PutHeader<ifinfomsg>(message)->ifi_index = index;
  return message;
}

nlmsghdr* StartNeighbour(std::uint16_t type, std::uint16_t flags, int device,
                         const Ipv6Address& address, MessageBatch* batch) {
  nlmsghdr* const message = batch->Start(type, flags);
  auto* const header = PutHeader<ndmsg>(message);
  header->ndm_family = AF_INET6;
  header->ndm_ifindex = device;
  header->ndm_state = NUD_PERMANENT;
  PutAddress(message, NDA_DST, address);
  return message;
}

}  // namespace

void WriteLinkQuery(const std::string& name, MessageBatch* batch) {
  nlmsghdr* const message = StartLink(RTM_GETLINK, 0, 0, batch);
  mnl_attr_put_strz(message, IFLA_IFNAME, name.c_str());
  mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
}

void WriteNeighbourQuery(int device, const Ipv6Address& address, MessageBatch* batch) {
  nlmsghdr* const message = batch->Start(RTM_GETNEIGH, 0);
  auto* const header = PutHeader<ndmsg>(message);
  header->ndm_family = AF_INET6;
  header->ndm_ifindex = device;
  PutAddress(message, NDA_DST, address);
}

void WriteNexthopQuery(std::uint32_t id, MessageBatch* batch) {
  nlmsghdr* const message = batch->Start(RTM_GETNEXTHOP, 0);
  PutHeader<nhmsg>(message);
  mnl_attr_put_u32(message, NHA_ID, id);
}

void WriteLinkDump(MessageBatch* batch) {
  nlmsghdr* const message = StartLink(RTM_GETLINK, 0, 0, batch);
  mnl_attr_put_u32(message, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
}

void WriteNeighbourDump(MessageBatch* batch) {
  PutHeader<ndmsg>(batch->Start(RTM_GETNEIGH, 0))->ndm_family = AF_INET6;
}

void WriteNexthopDump(MessageBatch* batch) { PutHeader<nhmsg>(batch->Start(RTM_GETNEXTHOP, 0)); }

void WriteIpv4RouteDump(MessageBatch* batch) {
  PutHeader<rtmsg>(batch->Start(RTM_GETROUTE, 0))->rtm_family = AF_INET;
}

void WriteIpv6RouteDump(MessageBatch* batch) {
  PutHeader<rtmsg>(batch->Start(RTM_GETROUTE, 0))->rtm_family = AF_INET6;
}

void WriteNewDevice(const std::string& name, const KernelDevice& device,
                    const DeviceIndexes& indexes, MessageBatch* batch) {
  nlmsghdr* const message = StartLink(RTM_NEWLINK, kAdd, 0, batch);
  mnl_attr_put_strz(message, IFLA_IFNAME, name.c_str());
  mnl_attr_put_u32(message, IFLA_GROUP, kDeviceGroup);
  std::visit(PutKind{message, indexes}, device);
}

void WriteDeviceChange(const Link& present, const KernelDevice& device,
                       const DeviceIndexes& indexes, MessageBatch* batch) {
  const auto* const macvlan = std::get_if<MacvlanDevice>(&device);
  const std::optional<bool> forwarding = ForwardingOf(device);
  nlmsghdr* const message = StartLink(RTM_NEWLINK, 0, present.index, batch);
  if (macvlan != nullptr) PutDifferences(present, *macvlan, indexes, message);
  nlattr* const families = mnl_attr_nest_start(message, IFLA_AF_SPEC);
  if (forwarding.has_value() && present.forwards_ipv4 != *forwarding) {
    nlattr* const ipv4 = mnl_attr_nest_start(message, AF_INET);
    nlattr* const settings = mnl_attr_nest_start(message, IFLA_INET_CONF);
    mnl_attr_put_u32(message, IPV4_DEVCONF_FORWARDING, *forwarding ? 1 : 0);
    mnl_attr_nest_end(message, settings);
    mnl_attr_nest_end(message, ipv4);
  }
  if (present.ipv6.has_value() && present.ipv6->generates_addresses) {
    nlattr* const ipv6 = mnl_attr_nest_start(message, AF_INET6);
    mnl_attr_put_u8(message, IFLA_INET6_ADDR_GEN_MODE, IN6_ADDR_GEN_MODE_NONE);
    mnl_attr_nest_end(message, ipv6);
  }
  mnl_attr_nest_end(message, families);
}

void WriteDeviceUp(int index, MessageBatch* batch) {
  void* const payload = mnl_nlmsg_get_payload(StartLink(RTM_NEWLINK, 0, index, batch));
  auto* const header = static_cast<ifinfomsg*>(payload);
  header->ifi_flags = IFF_UP;
  header->ifi_change = IFF_UP;
}

void WriteDeviceRemoval(int index, MessageBatch* batch) { StartLink(RTM_DELLINK, 0, index, batch); }

void WriteNeighbour(int device, const Ipv6Address& address, const MacAddress& mac,
                    MessageBatch* batch) {
  nlmsghdr* const message = StartNeighbour(RTM_NEWNEIGH, kPut, device, address, batch);
  PutMac(message, NDA_LLADDR, mac);
  mnl_attr_put_u8(message, NDA_PROTOCOL, kRoutingProtocol);
}

void WriteNeighbourRemoval(int device, const Ipv6Address& address, MessageBatch* batch) {
  StartNeighbour(RTM_DELNEIGH, 0, device, address, batch);
}

void WriteNexthop(std::uint32_t id, const KernelNexthop& nexthop, int device, bool replace,
                  MessageBatch* batch) {
  nlmsghdr* const message = batch->Start(RTM_NEWNEXTHOP, replace ? kPut : kAdd);
  auto* const header = PutHeader<nhmsg>(message);
  header->nh_protocol = kRoutingProtocol;
  // Routes of both families may use an IPv6 next hop. A group belongs to neither.
  const bool is_group = std::holds_alternative<NexthopGroup>(nexthop);
  header->nh_family = is_group ? AF_UNSPEC : AF_INET6;
  const auto* const via = std::get_if<DeviceNexthop>(&nexthop);
  if (via != nullptr && via->gateway != Ipv6Address{}) header->nh_flags = RTNH_F_ONLINK;
  mnl_attr_put_u32(message, NHA_ID, id);
  std::visit(PutNexthopKind{message, device}, nexthop);
}

void WriteNexthopRemoval(std::uint32_t id, MessageBatch* batch) {
  nlmsghdr* const message = batch->Start(RTM_DELNEXTHOP, 0);
  PutHeader<nhmsg>(message);
  mnl_attr_put_u32(message, NHA_ID, id);
}

Link ReadLink(const nlmsghdr& message) {
  const auto header = GetHeader<ifinfomsg>(message);
  const Attributes attributes = AttributesOf<ifinfomsg>(message);
  const Attributes info = NestedIn(attributes[IFLA_LINKINFO]);
  const Attributes data = NestedIn(info[IFLA_INFO_DATA]);
  const Attributes families = NestedIn(attributes[IFLA_AF_SPEC]);
  Link link;
  link.index = header.ifi_index;
  link.up = (header.ifi_flags & IFF_UP) != 0;
  link.running = link.up && (header.ifi_flags & IFF_RUNNING) != 0;
  link.name = TextOf(attributes[IFLA_IFNAME]);
  link.group = ValueOf<std::uint32_t>(attributes[IFLA_GROUP]);
  link.parent = ValueOf<int>(attributes[IFLA_LINK]);
  link.master = ValueOf<int>(attributes[IFLA_MASTER]);
  link.address = ValueOf<MacAddress>(attributes[IFLA_ADDRESS]);
  link.mtu = ValueOf<std::uint32_t>(attributes[IFLA_MTU]);
  link.alias = TextOf(attributes[IFLA_IFALIAS]);
  link.kind = TextOf(info[IFLA_INFO_KIND]);
  if (link.kind == "vlan") link.tag = ValueOf<std::uint16_t>(data[IFLA_VLAN_ID]);
  if (link.kind == "vrf") link.table = ValueOf<std::uint32_t>(data[IFLA_VRF_TABLE]);

  const Attributes ipv4 = NestedIn(families[AF_INET]);
  // The kernel counts them from 1 and lists them from 0.
  const auto ipv4_settings = ArrayOf<std::uint32_t>(ipv4[IFLA_INET_CONF]);
  link.forwards_ipv4 = ipv4_settings.size() >= IPV4_DEVCONF_FORWARDING &&
                       ipv4_settings[IPV4_DEVCONF_FORWARDING - 1] != 0;
  const Attributes ipv6 = NestedIn(families[AF_INET6]);
  const auto ipv6_settings = ArrayOf<std::uint32_t>(ipv6[IFLA_INET6_CONF]);
  if (ipv6_settings.size() > DEVCONF_DISABLE_IPV6) {
    link.ipv6 = {ipv6_settings[DEVCONF_FORWARDING] != 0, ipv6_settings[DEVCONF_DISABLE_IPV6] != 0,
                 ValueOf<std::uint8_t>(ipv6[IFLA_INET6_ADDR_GEN_MODE]) != IN6_ADDR_GEN_MODE_NONE};
  }
  return link;
}

std::optional<NeighbourEntry> ReadNeighbour(const nlmsghdr& message) {
  const auto header = GetHeader<ndmsg>(message);
  const Attributes attributes = AttributesOf<ndmsg>(message);
  if (header.ndm_family != AF_INET6 ||
      ValueOf<std::uint8_t>(attributes[NDA_PROTOCOL]) != kRoutingProtocol) {
    return std::nullopt;
  }
  return NeighbourEntry{header.ndm_ifindex, ValueOf<Ipv6Address>(attributes[NDA_DST]),
                        ValueOf<MacAddress>(attributes[NDA_LLADDR]),
                        (header.ndm_state & NUD_PERMANENT) != 0};
}

NexthopEntry ReadNexthop(const nlmsghdr& message) {
  const auto header = GetHeader<nhmsg>(message);
  const Attributes attributes = AttributesOf<nhmsg>(message);
  NexthopEntry entry;
  entry.id = ValueOf<std::uint32_t>(attributes[NHA_ID]);
  entry.protocol = header.nh_protocol;
  if (attributes[NHA_BLACKHOLE] != nullptr) {
    entry.nexthop = BlackholeNexthop{};
    return entry;
  }
  if (attributes[NHA_GROUP] != nullptr) {
    NexthopGroup group;
    for (const nexthop_grp& member : ArrayOf<nexthop_grp>(attributes[NHA_GROUP])) {
      group.members.emplace_back(member.id, member.weight + 1);
    }
    // Another program may have written it.
    std::sort(group.members.begin(), group.members.end());
    entry.nexthop = std::move(group);
    return entry;
  }
  entry.device = ValueOf<int>(attributes[NHA_OIF]);
  DeviceNexthop nexthop;
  nexthop.gateway = ValueOf<Ipv6Address>(attributes[NHA_GATEWAY]);
  const Attributes encap = NestedIn(attributes[NHA_ENCAP]);
  if (ValueOf<std::uint16_t>(attributes[NHA_ENCAP_TYPE]) == LWTUNNEL_ENCAP_MPLS) {
    for (const auto label : ArrayOf<std::uint32_t>(encap[MPLS_IPTUNNEL_DST])) {
      nexthop.labels.push_back(ntohl(label) >> MPLS_LS_LABEL_SHIFT);
    }
  }
  entry.nexthop = std::move(nexthop);
  return entry;
}

std::uint32_t ReadNexthopOfRoute(const nlmsghdr& message) {
  return ValueOf<std::uint32_t>(AttributesOf<rtmsg>(message)[RTA_NH_ID]);
}

std::optional<bool> ForwardingOf(const KernelDevice& device) {
  if (const auto* const macvlan = std::get_if<MacvlanDevice>(&device)) return macvlan->forwarding;
  // In a VRF, the kernel checks this setting of the VRF's device.
  if (std::holds_alternative<VrfDevice>(device)) return true;
  return std::nullopt;
}

std::optional<KernelDevice> OurDevice(const Link& link, const std::map<int, std::string>& names) {
  if (link.group != kDeviceGroup) return std::nullopt;
  const auto name = [&names](int index) {
    const auto found = names.find(index);
    return found == names.end() ? std::string() : found->second;
  };
  if (link.kind == "vrf") return VrfDevice{link.table};
  if (link.kind == "dummy") return DummyDevice{};
  if (link.kind == "vlan") return TaggedDevice{name(link.parent), link.tag};
  if (link.kind != "macvlan") return std::nullopt;
  MacvlanDevice macvlan;
  macvlan.parent = name(link.parent);
  macvlan.address = link.address;
  macvlan.mtu = link.mtu;
  macvlan.master = name(link.master);
  macvlan.forwarding = link.forwards_ipv4 && link.ipv6.has_value() && link.ipv6->forwards;
  macvlan.alias = link.alias;
  return macvlan;
}

}  // namespace reference
