#include "benchmarks/storing_floor.h"

namespace bench {
namespace {

using reference::HalOperation;
using reference::kHalBadRequest;

constexpr std::uint32_t kLabels = 1U << 20;

template <typename Message>
bool Parse(std::string_view payload, Message* message) {
  return message->ParseFromArray(payload.data(), static_cast<int>(payload.size()));
}

}  // namespace

StoringFloor::Outcome StoringFloor::Install(HalOperation operation, std::string_view payload) {
  switch (operation) {
    case HalOperation::kInstallVrf:
      return InstallVrf(payload);
    case HalOperation::kInstallVlan:
      return InstallVlan(payload);
    case HalOperation::kInstallHost:
      return InstallHost(payload);
    case HalOperation::kInstallMpls:
      return InstallMpls(payload);
    case HalOperation::kInstallEcmp:
      return InstallEcmp(payload);
    default:
      return {kHalBadRequest};
  }
}

StoringFloor::Outcome StoringFloor::InstallVrf(std::string_view payload) {
  if (!Parse(payload, &vrf_) || !vrf_.has_vrf_id()) return {kHalBadRequest};
  return {Store(&vrfs_, vrf_.vrf_id(), payload), vrf_.vrf_id()};
}

StoringFloor::Outcome StoringFloor::InstallVlan(std::string_view payload) {
  if (!Parse(payload, &vlan_) || vlan_.vlan_destination_id() == 0) return {kHalBadRequest};
  return {Store(&vlans_, vlan_.vlan_destination_id(), payload), vlan_.vlan_destination_id()};
}

StoringFloor::Outcome StoringFloor::InstallHost(std::string_view payload) {
  if (!Parse(payload, &host_) || host_.dest_id() == 0) return {kHalBadRequest};
  if (host_.has_vlan_dest_id() && !vlans_.contains(host_.vlan_dest_id())) {
    return {reference::kHalMissingReference, host_.dest_id()};
  }
  return {Store(&hosts_, host_.dest_id(), payload), host_.dest_id()};
}

StoringFloor::Outcome StoringFloor::InstallMpls(std::string_view payload) {
  if (!Parse(payload, &mpls_message_) || mpls_message_.dest_id() == 0) return {kHalBadRequest};
  const std::uint32_t id = mpls_message_.dest_id();
  for (const std::uint32_t label : mpls_message_.labels()) {
    if (label >= kLabels) return {reference::kHalLabelOutOfRange, id};
  }
  const std::uint32_t under = mpls_message_.vlan_tunnel_dest_id();
  if (under != 0 && !vlans_.contains(under) && !mpls_.contains(under)) {
    return {reference::kHalMissingReference, id};
  }
  return {Store(&mpls_, id, payload), id, mpls_message_.pass_through_value()};
}

StoringFloor::Outcome StoringFloor::InstallEcmp(std::string_view payload) {
  if (!Parse(payload, &ecmp_) || ecmp_.db_id() == 0) return {kHalBadRequest};
  for (const std::uint32_t member : ecmp_.members()) {
    if (!hosts_.contains(member) && !mpls_.contains(member) && !vlans_.contains(member)) {
      return {reference::kHalMissingReference, ecmp_.db_id()};
    }
  }
  return {Store(&ecmps_, ecmp_.db_id(), payload), ecmp_.db_id()};
}

reference::HalReturnCode StoringFloor::Store(Table* table, std::uint32_t id,
                                             std::string_view payload) {
  const auto [place, added] = table->try_emplace(id, Place{payloads_.size(), payload.size()});
  if (!added) {
    const std::string_view stored(payloads_.data() + place->second.begin, place->second.size);
    return stored == payload ? reference::kHalSuccess : reference::kHalExists;
  }
  if (table->size() > capacity_) {
    table->erase(place);
    return reference::kHalTableFull;
  }
  payloads_.append(payload);
  return reference::kHalSuccess;
}

}  // namespace bench
