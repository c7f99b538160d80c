#include "benchmarks/typical_requests.h"

#include <cstdint>
#include <string>

#include "base_encap_message.pb.h"

namespace bench {
namespace {

using reference::HalOperation;
using reference::HalRequest;

constexpr std::uint32_t kVlans = 8;
constexpr std::uint32_t kHosts = 60;
constexpr std::uint32_t kTunnels = 6;
constexpr std::uint32_t kCircuits = 12;
constexpr std::uint32_t kGroups = 13;
constexpr std::uint32_t kMembers = 4;
static_assert(1 + kVlans + kHosts + kTunnels + kCircuits + kGroups == kBlock);

const std::string kLimId("\x01\x00\x00\x01", 4);
const std::string kMac("\x02\x00\x00\x00\x01\x0a", 6);

template <typename Message>
HalRequest Install(HalOperation operation, std::uint32_t id, const Message& message) {
  return {operation, id, 0, message.SerializeAsString()};
}

HalRequest InstallVlan(std::uint32_t id, std::uint32_t vrf) {
  encapsulation::VlanMessage vlan;
  vlan.set_lim_id(kLimId);
  vlan.set_source_mac_address(kMac);
  vlan.set_vlan_destination_id(id);
  vlan.set_vrf(vrf);
  vlan.set_mtu(1500);
  vlan.add_capabilities(encapsulation::VLAN_CAPABILITY_ROUTED);
  return Install(HalOperation::kInstallVlan, id, vlan);
}

HalRequest InstallHost(std::uint32_t id, std::uint32_t vlan) {
  encapsulation::HostMessage host;
  host.set_dest_id(id);
  host.set_vlan_dest_id(vlan);
  host.set_lim_id(kLimId);
  host.set_dest_mac(kMac);
  return Install(HalOperation::kInstallHost, id, host);
}

HalRequest InstallMpls(std::uint32_t id, std::uint32_t under, std::uint32_t label) {
  encapsulation::MplsMessage mpls;
  mpls.set_dest_id(id);
  mpls.set_vlan_tunnel_dest_id(under);
  mpls.set_lim_id(kLimId);
  mpls.set_dest_mac(kMac);
  mpls.add_labels(label);
  mpls.add_capabilities(encapsulation::MPLS_CAPABILITY_PUSH);
  return Install(HalOperation::kInstallMpls, id, mpls);
}

HalRequest InstallGroup(std::uint32_t id, std::uint32_t first_member) {
  encapsulation::EcmpMessage group;
  group.set_db_id(id);
  for (std::uint32_t member = 0; member < kMembers; ++member) {
    group.add_members(first_member + member);
  }
  return Install(HalOperation::kInstallEcmp, id, group);
}

void AppendBlock(std::uint32_t block, std::vector<HalRequest>* requests) {
  constexpr std::uint32_t kFirstLabel = 16;
  encapsulation::VrfMessage vrf;
  vrf.set_vrf_id(block + 1);
  requests->push_back(Install(HalOperation::kInstallVrf, block + 1, vrf));
  std::uint32_t id = block * static_cast<std::uint32_t>(kBlock) + 1;
  const std::uint32_t first_vlan = id;
  for (std::uint32_t vlan = 0; vlan < kVlans; ++vlan) {
    requests->push_back(InstallVlan(id++, block + 1));
  }
  const std::uint32_t first_host = id;
  for (std::uint32_t host = 0; host < kHosts; ++host) {
    requests->push_back(InstallHost(id++, first_vlan + host % kVlans));
  }
  const std::uint32_t first_tunnel = id;
  for (std::uint32_t tunnel = 0; tunnel < kTunnels; ++tunnel) {
    requests->push_back(InstallMpls(id++, first_vlan + tunnel, kFirstLabel + tunnel));
  }
  for (std::uint32_t circuit = 0; circuit < kCircuits; ++circuit) {
    requests->push_back(
        InstallMpls(id++, first_tunnel + circuit % kTunnels, kFirstLabel + kTunnels + circuit));
  }
  for (std::uint32_t group = 0; group < kGroups; ++group) {
    requests->push_back(InstallGroup(id++, first_host + group * kMembers));
  }
}

}  // namespace

std::vector<HalRequest> TypicalRequests(std::size_t blocks) {
  std::vector<HalRequest> requests;
  for (std::uint32_t block = 0; block < blocks; ++block) AppendBlock(block, &requests);
  return requests;
}

}  // namespace bench
