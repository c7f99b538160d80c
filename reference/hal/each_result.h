#ifndef ZUSKUX_REFERENCE_HAL_EACH_RESULT_H_
#define ZUSKUX_REFERENCE_HAL_EACH_RESULT_H_

#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"
#include "reference/hal/hal_code.h"

namespace reference {

/// For who wants the results of all operations in one function, on the thread they come on.
class EachResult : public HalL3MplsEncapsulationClientCallbackItf {
 public:
  // `HalConnection` never calls it.
  void InitEncapsulationModuleResCallback(ReturnCode /*code*/) final {}

  void InstallVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(code, id);
  }
  void DestroyVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(code, id);
  }
  void ReplaceVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(code, id);
  }
  void InstallHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(code, id);
  }
  void DestroyHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(code, id);
  }
  void ReplaceHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) final {
    OnResult(code, id);
  }
  void InstallEcmpEncapResCallback(ReturnCode code, unsigned int id) final { OnResult(code, id); }
  void DestroyEcmpEncapResCallback(ReturnCode code, unsigned int id) final { OnResult(code, id); }
  void InstallMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int /*secondary_id*/) final {
    OnResult(code, id);
  }
  void DestroyMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int /*secondary_id*/) final {
    OnResult(code, id);
  }
  void ReplaceMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int /*secondary_id*/) final {
    OnResult(code, id);
  }

 private:
  /// `id` is the destination's.
  virtual void OnResult(HalReturnCode code, unsigned int id) = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_EACH_RESULT_H_
