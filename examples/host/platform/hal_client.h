#ifndef HOST_PLATFORM_HAL_CLIENT_H_
#define HOST_PLATFORM_HAL_CLIENT_H_

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"

namespace host {

/// A HAL client without a HAL: prints every request and reports success on a thread of its own.
class AnsweringHal : public HalL3MplsEncapsulationClient {
 public:
  /// `results` is not owned; it outlives this object.
  explicit AnsweringHal(HalL3MplsEncapsulationClientCallbackItf* results);
  /// Reports what is still to be reported, then returns.
  ~AnsweringHal() override;

  /// Reports that the server was found; there is one server, and it is found at once.
  void OnServerFound(void (*report)(void* context));

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
  using Results = HalL3MplsEncapsulationClientCallbackItf;
  using Result = void (Results::*)(ReturnCode, unsigned int);
  using MplsResult = void (Results::*)(ReturnCode, unsigned int, unsigned int);

  ReturnCode Answer(Result result, std::uint32_t db_id);
  ReturnCode AnswerMpls(MplsResult result, const AppMessage& mpls);
  void Report(std::function<void()> report);
  void Run();

  Results* const results_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> reports_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace host

#endif  // HOST_PLATFORM_HAL_CLIENT_H_
