#ifndef ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_CLIENT_CALLBACK_ITF_H_
#define ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_CLIENT_CALLBACK_ITF_H_

#include "hal_client/hal_l3_mpls_encapsulation_return_code.h"

/// The HAL client library calls this with the outcome of each request, on its own thread. The first
/// id is the database id that the request carried. The HAL client library defines the second id of
/// an MPLS result.
///
/// The HAL client library does not own it.
///
/// The order of the virtual operations is part of the binary interface: install, destroy, replace
/// within each kind.
class __attribute__((visibility("default"))) HalL3MplsEncapsulationClientCallbackItf {
 public:
  /// The outcome of a request; 0 is success.
  using ReturnCode = HalL3MplsEncapsulationReturnCode;

  HalL3MplsEncapsulationClientCallbackItf() = default;
  HalL3MplsEncapsulationClientCallbackItf(const HalL3MplsEncapsulationClientCallbackItf&) = delete;
  HalL3MplsEncapsulationClientCallbackItf& operator=(
      const HalL3MplsEncapsulationClientCallbackItf&) = delete;
  virtual ~HalL3MplsEncapsulationClientCallbackItf();

  /// The outcome of `InitEncapsulationModule`.
  virtual void InitEncapsulationModuleResCallback(ReturnCode code) = 0;

  /// The outcome of a VLAN request.
  /// @{
  virtual void InstallVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) = 0;
  virtual void DestroyVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) = 0;
  virtual void ReplaceVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) = 0;
  /// @}

  /// The outcome of a host request.
  /// @{
  virtual void InstallHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) = 0;
  virtual void DestroyHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) = 0;
  virtual void ReplaceHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int db_id) = 0;
  /// @}

  /// The outcome of an ECMP request.
  /// @{
  virtual void InstallEcmpEncapResCallback(ReturnCode code, unsigned int db_id) = 0;
  virtual void DestroyEcmpEncapResCallback(ReturnCode code, unsigned int db_id) = 0;
  /// @}

  /// The outcome of an MPLS request.
  /// @{
  virtual void InstallMplsUnprotectedOutgoingEncapsulationResCallback(
      ReturnCode code, unsigned int db_id, unsigned int secondary_id) = 0;
  virtual void DestroyMplsUnprotectedOutgoingEncapsulationResCallback(
      ReturnCode code, unsigned int db_id, unsigned int secondary_id) = 0;
  virtual void ReplaceMplsUnprotectedOutgoingEncapsulationResCallback(
      ReturnCode code, unsigned int db_id, unsigned int secondary_id) = 0;
  /// @}
};

#endif  // ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_CLIENT_CALLBACK_ITF_H_
