#ifndef ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_CLIENT_H_
#define ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_CLIENT_H_

#include "hal_client/hal_l3_mpls_encapsulation_return_code.h"

class AppMessage;

/// The client side of the HAL's L3 MPLS encapsulation service, as the HAL client library offers it.
///
/// Each request takes the printable message of its kind (`VlanEncapsulationMessage` and so on),
/// which lives only for the duration of the call: a client copies or serialises what it keeps. The
/// outcome of a request arrives later, on the client library's thread, at the
/// `HalL3MplsEncapsulationClientCallbackItf`. That includes a refusal: the adapters ignore the
/// return code. VRF requests have no outcome.
///
/// Requests arrive on the destination manager's thread. The host program owns the client.
///
/// The order of the virtual operations is part of the binary interface.
class __attribute__((visibility("default"))) HalL3MplsEncapsulationClient {
 public:
  /// Whether a request was accepted: 0, or a code of the HAL client library.
  using ReturnCode = HalL3MplsEncapsulationReturnCode;

  HalL3MplsEncapsulationClient() = default;
  HalL3MplsEncapsulationClient(const HalL3MplsEncapsulationClient&) = delete;
  HalL3MplsEncapsulationClient& operator=(const HalL3MplsEncapsulationClient&) = delete;
  virtual ~HalL3MplsEncapsulationClient();

  /// The host program calls this once, before any request.
  virtual ReturnCode InitEncapsulationModule() = 0;

  /// Installs or removes the VRF of a `VrfEncapsulationMessage`. Has no outcome.
  /// @{
  virtual ReturnCode InstallVrfIngressInterface(AppMessage* vrf) = 0;
  virtual ReturnCode DestroyVrfIngressInterface(AppMessage* vrf) = 0;
  /// @}

  /// Installs, removes or replaces the destination of a `VlanEncapsulationMessage`.
  /// @{
  virtual ReturnCode InstallVlanOutgoingEncapsulation(AppMessage* vlan) = 0;
  virtual ReturnCode DestroyVlanOutgoingEncapsulation(AppMessage* vlan) = 0;
  virtual ReturnCode ReplaceVlanOutgoingEncapsulation(AppMessage* vlan) = 0;
  /// @}

  /// Installs, removes or replaces the destination of a `HostEncapsulationMessage`.
  /// @{
  virtual ReturnCode InstallHostOutgoingEncapsulation(AppMessage* host) = 0;
  virtual ReturnCode DestroyHostOutgoingEncapsulation(AppMessage* host) = 0;
  virtual ReturnCode ReplaceHostOutgoingEncapsulation(AppMessage* host) = 0;
  /// @}

  /// Installs or removes the group of an `EcmpEncapsulationMessage`.
  /// @{
  virtual ReturnCode InstallEcmpEncap(AppMessage* ecmp) = 0;
  virtual ReturnCode DestroyEcmpEncap(AppMessage* ecmp) = 0;
  /// @}

  /// Installs, removes or replaces the destination of an `MplsEncapsulationMessage`.
  /// @{
  virtual ReturnCode InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) = 0;
  virtual ReturnCode DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) = 0;
  virtual ReturnCode ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) = 0;
  /// @}
};

#endif  // ZUSKUX_PLATFORM_HAL_CLIENT_HAL_L3_MPLS_ENCAPSULATION_CLIENT_H_
