#ifndef ZUSKUX_HAI_CALLBACK_H_
#define ZUSKUX_HAI_CALLBACK_H_

#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"
#include "zuskux/export.h"

namespace dest_mng {

/// Turns the HAL's results into notifications to the destination manager's controllers. Code 0
/// calls the controller's success handler, any other code its error handler. The carried record
/// holds the ids of the result.
///
/// Owned by `Hai`. The host program passes it to the HAL client library, which calls it on a thread
/// of its choice. It has no data and takes no lock. An exception from a handler propagates to the
/// caller.
///
/// The order of the virtual operations is that of the interface.
class ZUSKUX_EXPORT HaiDestClientCallback : public HalL3MplsEncapsulationClientCallbackItf {
 public:
  HaiDestClientCallback();
  ~HaiDestClientCallback() override;

  /// No-op.
  void InitEncapsulationModuleResCallback(ReturnCode code) override;

  /// Notifies `MessageControllerVlan`.
  /// @{
  void InstallVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) override;
  void DestroyVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) override;
  void ReplaceVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) override;
  /// @}

  /// Notifies `MessageControllerHost`.
  /// @{
  void InstallHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) override;
  void DestroyHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) override;
  void ReplaceHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) override;
  /// @}

  /// Notifies `MessageControllerEcmp`.
  /// @{
  void InstallEcmpEncapResCallback(ReturnCode code, unsigned int db_id) override;
  void DestroyEcmpEncapResCallback(ReturnCode code, unsigned int db_id) override;
  /// @}

  /// Notifies `MessageControllerMpls`.
  /// @{
  void InstallMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id,
                                                              unsigned int secondary_id) override;
  void DestroyMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id,
                                                              unsigned int secondary_id) override;
  void ReplaceMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id,
                                                              unsigned int secondary_id) override;
  /// @}

  /// Asks every controller to reinstall all of its objects: VRF, VLAN, host, ECMP, MPLS, in this
  /// order. The host program passes this function to the HAL client library, which must call it
  /// whenever it finds the HAL server, at start or after a restart. `context` is ignored.
  static void HalServerFoundCallback(void* context);
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_CALLBACK_H_
