#ifndef ZUSKUX_TESTS_SUPPORT_FAKE_HAL_CLIENT_H_
#define ZUSKUX_TESTS_SUPPORT_FAKE_HAL_CLIENT_H_

#include <exception>
#include <functional>

#include "app_framework/app_message.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"

namespace testing_support {

/// Records every request as an event: the operation, the run-time type of the wrapper and the
/// carried message. Fails the test if the wrapper does not fit the operation. Answers every request
/// with an error code, which callers must ignore.
class FakeHalClient : public HalL3MplsEncapsulationClient {
 public:
  ~FakeHalClient() override;

  /// Called within every request, after recording it; for tests that inspect the wrapper or throw.
  std::function<void(AppMessage* wrapper)> on_request;

  ReturnCode InitEncapsulationModule() override;
  ReturnCode InstallVrfIngressInterface(AppMessage* vrf) override;
  ReturnCode DestroyVrfIngressInterface(AppMessage* vrf) override;
  ReturnCode InstallVlanOutgoingEncapsulation(AppMessage* vlan) override;
  ReturnCode DestroyVlanOutgoingEncapsulation(AppMessage* vlan) override;
  ReturnCode ReplaceVlanOutgoingEncapsulation(AppMessage* vlan) override;
  ReturnCode InstallHostOutgoingEncapsulation(AppMessage* host) override;
  ReturnCode DestroyHostOutgoingEncapsulation(AppMessage* host) override;
  ReturnCode ReplaceHostOutgoingEncapsulation(AppMessage* host) override;
  ReturnCode InstallEcmpEncap(AppMessage* ecmp) override;
  ReturnCode DestroyEcmpEncap(AppMessage* ecmp) override;
  ReturnCode InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) override;
  ReturnCode DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) override;
  ReturnCode ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) override;

 private:
  template <typename Wrapper>
  ReturnCode Record(const char* operation, const char* wrapper_name, AppMessage* message);
};

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FAKE_HAL_CLIENT_H_
