#ifndef ZUSKUX_DEST_CONTROLLERS_H_
#define ZUSKUX_DEST_CONTROLLERS_H_

#include "app_framework/message_controller.h"
#include "zuskux/export.h"

namespace dest_mng {

// The controllers that deliver results and reinstall requests. For each notification, the library
// builds a controller on its stack around a heap application message, calls one handler and
// destroys the controller, all on the thread on which the HAL client library reports. The
// controller owns the message.
//
// The host program defines the handlers. `...Success` and `...Error` handlers find the ids of the
// result in the carried record, which `message()` reaches. A `Reinstall...` handler gets an empty
// record and must program every object of its kind through the adapters. An exception from a
// handler propagates to the HAL client library.

/// Notifications for VLAN destinations; carries an `AppDestVlanMessage`.
class ZUSKUX_EXPORT MessageControllerVlan : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerVlan() override;

  /// The HAL answered a request for the VLAN destination whose ids are in the record.
  /// @{
  void CreatedDestVlanSuccess();
  void CreatedDestVlanError();
  void UpdatedDestVlanSuccess();
  void UpdatedDestVlanError();
  void DeletedDestVlanSuccess();
  void DeletedDestVlanError();
  /// @}

  /// The HAL server was found: install every VLAN destination.
  void ReinstallDestVlan();
};

/// Notifications for host destinations; carries an `AppDestHostMessage`.
class ZUSKUX_EXPORT MessageControllerHost : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerHost() override;

  /// The HAL answered a request for the host destination whose ids are in the record.
  /// @{
  void CreatedDestHostSuccess();
  void CreatedDestHostError();
  void UpdatedDestHostSuccess();
  void UpdatedDestHostError();
  void DeletedDestHostSuccess();
  void DeletedDestHostError();
  /// @}

  /// The HAL server was found: install every host destination.
  void ReinstallDestHost();
};

/// Notifications for ECMP groups, which have no update; carries an `AppDestEcmpMessage`.
class ZUSKUX_EXPORT MessageControllerEcmp : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerEcmp() override;

  /// The HAL answered a request for the ECMP group whose ids are in the record.
  /// @{
  void CreatedDestEcmpSuccess();
  void CreatedDestEcmpError();
  void DeletedDestEcmpSuccess();
  void DeletedDestEcmpError();
  /// @}

  /// The HAL server was found: install every ECMP group.
  void ReinstallDestEcmp();
};

/// Notifications for MPLS destinations; carries an `AppDestMplsMessage`.
class ZUSKUX_EXPORT MessageControllerMpls : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerMpls() override;

  /// The HAL answered a request for the MPLS destination whose ids are in the record.
  /// @{
  void CreatedDestMplsSuccess();
  void CreatedDestMplsError();
  void UpdatedDestMplsSuccess();
  void UpdatedDestMplsError();
  void DeletedDestMplsSuccess();
  void DeletedDestMplsError();
  /// @}

  /// The HAL server was found: install every MPLS destination.
  void ReinstallDestMpls();
};

/// Notifications for VRFs, whose requests have no result; carries an `AppVrfMessage`.
class ZUSKUX_EXPORT VrfController : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~VrfController() override;

  /// The HAL server was found: install every VRF.
  void ReinstallVrf();
};

}  // namespace dest_mng

#endif  // ZUSKUX_DEST_CONTROLLERS_H_
