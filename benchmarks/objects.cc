#include "benchmarks/objects.h"

#include <memory>
#include <string>

#include "dest_mng.pb.h"

namespace bench {
namespace {

const std::string kLimId("\x01\x00\x00\x01", 4);
const std::string kMac("\x02\x00\x00\x00\x01\x0a", 6);

class IdleHalClient : public HalL3MplsEncapsulationClient {
 public:
  ReturnCode InitEncapsulationModule() override { return {}; }
  ReturnCode InstallVrfIngressInterface(AppMessage* /*vrf*/) override { return {}; }
  ReturnCode DestroyVrfIngressInterface(AppMessage* /*vrf*/) override { return {}; }
  ReturnCode InstallVlanOutgoingEncapsulation(AppMessage* /*vlan*/) override { return {}; }
  ReturnCode DestroyVlanOutgoingEncapsulation(AppMessage* /*vlan*/) override { return {}; }
  ReturnCode ReplaceVlanOutgoingEncapsulation(AppMessage* /*vlan*/) override { return {}; }
  ReturnCode InstallHostOutgoingEncapsulation(AppMessage* /*host*/) override { return {}; }
  ReturnCode DestroyHostOutgoingEncapsulation(AppMessage* /*host*/) override { return {}; }
  ReturnCode ReplaceHostOutgoingEncapsulation(AppMessage* /*host*/) override { return {}; }
  ReturnCode InstallEcmpEncap(AppMessage* /*ecmp*/) override { return {}; }
  ReturnCode DestroyEcmpEncap(AppMessage* /*ecmp*/) override { return {}; }
  ReturnCode InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* /*mpls*/) override {
    return {};
  }
  ReturnCode DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* /*mpls*/) override {
    return {};
  }
  ReturnCode ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* /*mpls*/) override {
    return {};
  }
};

}  // namespace

dest_mng::DbVlanObject MakeVlan() {
  dest_mng::DbVlanObject vlan;
  auto record = std::make_unique<dest_mng::DestVlanMessage>();
  record->set_lim_id(kLimId);
  record->set_source_mac(kMac);
  record->set_vlan_dest_id(12);
  record->set_vrf(5);
  record->set_mtu(1500);
  record->add_capabilities(dest_mng::VLAN_CAPABILITY_ROUTED);
  vlan.record = std::move(record);
  vlan.list_attribute_name = "interfaces";
  vlan.attribute_lists["interfaces"].second.emplace_back(db::Attribute::Value("eth3.100"));
  return vlan;
}

dest_mng::DbHostObject MakeHost() {
  dest_mng::DbHostObject host;
  auto record = std::make_unique<dest_mng::DestHostMessage>();
  record->set_dest_id(101);
  record->set_lim_id(kLimId);
  record->set_dest_mac(kMac);
  record->add_flags(dest_mng::ACTION_TO_CPU);
  host.record = std::move(record);
  host.attributes["vlan_dest_id"] = db::Attribute(12);
  return host;
}

dest_mng::DbMplsObject MakeMpls() {
  dest_mng::DbMplsObject mpls;
  auto record = std::make_unique<dest_mng::DestMplsMessage>();
  record->set_mpls_dest_id(201);
  record->set_lim_id(kLimId);
  record->set_dest_mac(kMac);
  record->set_label(1001);
  record->set_pass_through_value(7);
  record->add_capabilities(dest_mng::MPLS_CAPABILITY_PUSH);
  mpls.record = std::move(record);
  mpls.attributes["vlan_dest_id"] = db::Attribute(12);
  mpls.attributes["host_dest_id"] = db::Attribute(101);
  return mpls;
}

dest_mng::EcmpData MakeEcmp() {
  dest_mng::EcmpData ecmp;
  ecmp.db_id = 301;
  ecmp.nhops = {101, 102, 103, 104};
  return ecmp;
}

HalL3MplsEncapsulationClient& IdleClient() {
  static IdleHalClient client;
  return client;
}

}  // namespace bench
