#ifndef ZUSKUX_TESTS_SYSTEM_KEEPING_HAL_CLIENT_H_
#define ZUSKUX_TESTS_SYSTEM_KEEPING_HAL_CLIENT_H_

#include <string>
#include <vector>

#include "hal_client/hal_l3_mpls_encapsulation_client.h"

/// Accepts every request and keeps the text of the carried messages by operation, for example
/// "InstallVlan vlan_destination_id: 12".
class KeepingHalClient : public HalL3MplsEncapsulationClient {
 public:
  std::vector<std::string> requests;

  ReturnCode InitEncapsulationModule() override { return ReturnCode{}; }
  ReturnCode InstallVrfIngressInterface(AppMessage* m) override { return Keep("InstallVrf", m); }
  ReturnCode DestroyVrfIngressInterface(AppMessage* m) override { return Keep("DestroyVrf", m); }
  ReturnCode InstallVlanOutgoingEncapsulation(AppMessage* m) override {
    return Keep("InstallVlan", m);
  }
  ReturnCode DestroyVlanOutgoingEncapsulation(AppMessage* m) override {
    return Keep("DestroyVlan", m);
  }
  ReturnCode ReplaceVlanOutgoingEncapsulation(AppMessage* m) override {
    return Keep("ReplaceVlan", m);
  }
  ReturnCode InstallHostOutgoingEncapsulation(AppMessage* m) override {
    return Keep("InstallHost", m);
  }
  ReturnCode DestroyHostOutgoingEncapsulation(AppMessage* m) override {
    return Keep("DestroyHost", m);
  }
  ReturnCode ReplaceHostOutgoingEncapsulation(AppMessage* m) override {
    return Keep("ReplaceHost", m);
  }
  ReturnCode InstallEcmpEncap(AppMessage* m) override { return Keep("InstallEcmp", m); }
  ReturnCode DestroyEcmpEncap(AppMessage* m) override { return Keep("DestroyEcmp", m); }
  ReturnCode InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* m) override {
    return Keep("InstallMpls", m);
  }
  ReturnCode DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* m) override {
    return Keep("DestroyMpls", m);
  }
  ReturnCode ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* m) override {
    return Keep("ReplaceMpls", m);
  }

 private:
  ReturnCode Keep(const char* operation, const AppMessage* message);
};

#endif  // ZUSKUX_TESTS_SYSTEM_KEEPING_HAL_CLIENT_H_
