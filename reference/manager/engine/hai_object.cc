#include "reference/manager/engine/hai_object.h"

#include <algorithm>
#include <array>
#include <boost/variant/get.hpp>
#include <cstring>
#include <string>
#include <type_traits>
#include <unordered_set>

#include "dest_mng.pb.h"

namespace reference {
namespace {

constexpr char kVlanId[] = "vlan_dest_id";
constexpr char kHostId[] = "host_dest_id";
constexpr char kListValues[] = "list_values";

using VlanPointer = std::unique_ptr<dest_mng::DbVlanObject>;
using HostPointer = std::unique_ptr<dest_mng::DbHostObject>;
using MplsPointer = std::unique_ptr<dest_mng::DbMplsObject>;

std::string LimIdBytes(std::uint32_t lim_id) {
  std::array<char, sizeof lim_id> bytes{};
  std::memcpy(bytes.data(), &lim_id, bytes.size());
  return {bytes.data(), bytes.size()};
}

std::string MacBytes(const Mac& mac) { return {mac.begin(), mac.end()}; }

// The adapters, too, convert the attribute's signed number back.
std::uint32_t ReadId(const dest_mng::DbObject& object, const char* name) {
  const auto found = object.attributes.find(name);
  if (found == object.attributes.end()) return 0;
  return static_cast<std::uint32_t>(boost::get<int>(found->second.value));
}

const dest_mng::DestMplsMessage& RecordOf(const dest_mng::DbMplsObject& mpls) {
  return static_cast<const dest_mng::DestMplsMessage&>(*mpls.record);
}

bool SameAttribute(const db::Attribute& a, const db::Attribute& b) {
  return a.present == b.present && a.value == b.value;
}

bool Same(const dest_mng::VrfData& a, const dest_mng::VrfData& b) {
  return a.vrf_id == b.vrf_id && a.db_id == b.db_id;
}

bool Same(const dest_mng::EcmpData& a, const dest_mng::EcmpData& b) {
  return a.db_id == b.db_id && a.nhops == b.nhops;
}

template <typename Object>
bool Same(const std::unique_ptr<Object>& a, const std::unique_ptr<Object>& b) {
  const auto same_single = [](const auto& x, const auto& y) {
    return x.first == y.first && SameAttribute(x.second, y.second);
  };
  const auto same_list = [](const auto& x, const auto& y) {
    return x.first == y.first && x.second.first == y.second.first &&
           std::equal(x.second.second.begin(), x.second.second.end(), y.second.second.begin(),
                      y.second.second.end(), SameAttribute);
  };
  return a->record->SerializeAsString() == b->record->SerializeAsString() &&
         a->list_attribute_name == b->list_attribute_name &&
         std::equal(a->attributes.begin(), a->attributes.end(), b->attributes.begin(),
                    b->attributes.end(), same_single) &&
         std::equal(a->attribute_lists.begin(), a->attribute_lists.end(),
                    b->attribute_lists.begin(), b->attribute_lists.end(), same_list);
}

std::vector<std::uint32_t> WithoutRepeats(const std::vector<unsigned int>& ids) {
  std::unordered_set<std::uint32_t> seen;
  std::vector<std::uint32_t> unique;
  for (const std::uint32_t id : ids) {
    if (seen.insert(id).second) unique.push_back(id);
  }
  return unique;
}

std::vector<std::uint32_t> NonZero(std::uint32_t id) {
  if (id == 0) return {};
  return {id};
}

Layer LayerOfContent(const dest_mng::VrfData& /*vrf*/) { return Layer::kVrf; }

Layer LayerOfContent(const VlanPointer& /*vlan*/) { return Layer::kVlan; }

Layer LayerOfContent(const HostPointer& /*host*/) { return Layer::kHost; }

Layer LayerOfContent(const dest_mng::EcmpData& /*ecmp*/) { return Layer::kEcmp; }

Layer LayerOfContent(const MplsPointer& mpls) {
  return mpls->HasVcLabel() ? Layer::kCircuit : Layer::kTunnel;
}

std::vector<std::uint32_t> References(const dest_mng::VrfData& /*vrf*/) { return {}; }

std::vector<std::uint32_t> References(const VlanPointer& /*vlan*/) { return {}; }

std::vector<std::uint32_t> References(const HostPointer& host) {
  return NonZero(ReadId(*host, kVlanId));
}

std::vector<std::uint32_t> References(const dest_mng::EcmpData& ecmp) {
  return WithoutRepeats(ecmp.nhops);
}

std::vector<std::uint32_t> References(const MplsPointer& mpls) {
  return NonZero(mpls->HasVcLabel() ? RecordOf(*mpls).tunnel_dest_id() : ReadId(*mpls, kVlanId));
}

std::optional<std::uint32_t> LimIdOfBytes(const std::string& bytes) {
  std::uint32_t lim_id = 0;
  std::memcpy(&lim_id, bytes.data(), std::min(bytes.size(), sizeof lim_id));
  return lim_id;
}

std::optional<std::uint32_t> LimIdOfContent(const dest_mng::VrfData& /*vrf*/) {
  return std::nullopt;
}

std::optional<std::uint32_t> LimIdOfContent(const dest_mng::EcmpData& /*ecmp*/) {
  return std::nullopt;
}

std::optional<std::uint32_t> LimIdOfContent(const VlanPointer& vlan) {
  return LimIdOfBytes(static_cast<const dest_mng::DestVlanMessage&>(*vlan->record).lim_id());
}

std::optional<std::uint32_t> LimIdOfContent(const HostPointer& host) {
  return LimIdOfBytes(static_cast<const dest_mng::DestHostMessage&>(*host->record).lim_id());
}

std::optional<std::uint32_t> LimIdOfContent(const MplsPointer& mpls) {
  return LimIdOfBytes(RecordOf(*mpls).lim_id());
}

}  // namespace

dest_mng::VrfData MakeHaiObject(const SiteVrf& vrf) { return {vrf.vrf_id, vrf.id}; }

VlanPointer MakeHaiObject(const SiteVlan& vlan) {
  auto record = std::make_unique<dest_mng::DestVlanMessage>();
  record->set_name(vlan.name);
  record->set_vlan_dest_id(vlan.id);
  record->set_lim_id(LimIdBytes(vlan.lim_id));
  if (vlan.source_mac) record->set_source_mac(MacBytes(*vlan.source_mac));
  if (vlan.vrf) record->set_vrf(*vlan.vrf);
  if (vlan.mtu) record->set_mtu(*vlan.mtu);
  for (const auto capability : vlan.capabilities) record->add_capabilities(capability);

  auto object = std::make_unique<dest_mng::DbVlanObject>();
  object->record = std::move(record);
  object->list_attribute_name = kListValues;
  auto& list = object->attribute_lists[kListValues];
  list.first = db::AttributeType::kString;
  for (const std::string& value : vlan.list_values) list.second.emplace_back(value);
  return object;
}

HostPointer MakeHaiObject(const SiteHost& host) {
  auto record = std::make_unique<dest_mng::DestHostMessage>();
  record->set_name(host.name);
  record->set_dest_id(host.id);
  record->set_lim_id(LimIdBytes(host.lim_id));
  if (host.mac) record->set_dest_mac(MacBytes(*host.mac));
  if (!host.ip_address.empty()) record->set_ip_address(host.ip_address);
  if (host.vrf) record->set_vrf(*host.vrf);
  for (const auto flag : host.flags) record->add_flags(flag);

  auto object = std::make_unique<dest_mng::DbHostObject>();
  object->record = std::move(record);
  object->attributes.emplace(kVlanId, host.vlan);
  return object;
}

MplsPointer MakeHaiObject(const SiteMpls& mpls) {
  auto record = std::make_unique<dest_mng::DestMplsMessage>();
  record->set_name(mpls.name);
  record->set_mpls_dest_id(mpls.id);
  record->set_lim_id(LimIdBytes(mpls.lim_id));
  if (mpls.mac) record->set_dest_mac(MacBytes(*mpls.mac));
  if (mpls.label) record->set_label(*mpls.label);
  if (mpls.pass_through_value) record->set_pass_through_value(*mpls.pass_through_value);
  for (const auto capability : mpls.capabilities) record->add_capabilities(capability);

  auto object = std::make_unique<dest_mng::DbMplsObject>();
  object->attributes.emplace(kHostId, mpls.neighbor);
  if (mpls.vc_label) {
    record->set_vc_label(*mpls.vc_label);
    record->set_tunnel_dest_id(mpls.tunnel);
  } else {
    object->attributes.emplace(kVlanId, mpls.vlan);
  }
  object->record = std::move(record);
  return object;
}

dest_mng::EcmpData MakeHaiObject(const SiteEcmp& ecmp) {
  return {ecmp.id, {ecmp.members.begin(), ecmp.members.end()}};
}

bool SameContent(const HaiObject& a, const HaiObject& b) {
  if (a.index() != b.index()) return false;
  return std::visit(
      [&b](const auto& content) {
        return Same(content, std::get<std::decay_t<decltype(content)>>(b));
      },
      a);
}

bool IsInactive(const HaiObject& object) { return NeighborId(object) == 0U; }

Layer LayerOf(const HaiObject& object) {
  return std::visit([](const auto& content) { return LayerOfContent(content); }, object);
}

std::vector<std::uint32_t> ReferencedIds(const HaiObject& object) {
  return std::visit([](const auto& content) { return References(content); }, object);
}

std::optional<std::uint32_t> NeighborId(const HaiObject& object) {
  const auto* const mpls = std::get_if<MplsPointer>(&object);
  if (mpls == nullptr) return std::nullopt;
  return ReadId(**mpls, kHostId);
}

std::optional<std::uint32_t> LimIdOf(const HaiObject& object) {
  return std::visit([](const auto& content) { return LimIdOfContent(content); }, object);
}

std::optional<std::uint32_t> VrfIdOf(const HaiObject& object) {
  const auto* const vlan = std::get_if<VlanPointer>(&object);
  if (vlan == nullptr) return std::nullopt;
  const auto& record = static_cast<const dest_mng::DestVlanMessage&>(*(*vlan)->record);
  return record.has_vrf() ? std::optional(record.vrf()) : std::nullopt;
}

}  // namespace reference
