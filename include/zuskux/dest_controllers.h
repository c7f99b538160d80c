#ifndef ZUSKUX_DEST_CONTROLLERS_H_
#define ZUSKUX_DEST_CONTROLLERS_H_

#include "app_framework/message_controller.h"
#include "zuskux/export.h"

namespace dest_mng {

// The controllers that results and reinstall requests are notified on. The library builds one on
// its stack for each notification, around a heap application message that the controller owns,
// calls one handler and destroys it, all on the thread on which the HAL client library reports.
//
// The handlers are the host program's to define. The `...Success` and `...Error` handlers find the
// ids of the result in the carried record, reached through `message()`; a `Reinstall...` handler is
// given an empty record and is expected to program every object of its kind through the adapters.
// An exception of a handler passes to the HAL client library.

/// Notifications on VLAN destinations; carries an `AppDestVlanMessage`.
class ZUSKUX_EXPORT MessageControllerVlan : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerVlan() override;

  /// The HAL answered a request for a VLAN destination, whose ids are in the record.
  /// @{
  void CreatedDestVlanSuccess();
  void CreatedDestVlanError();
  void UpdatedDestVlanSuccess();
  void UpdatedDestVlanError();
  void DeletedDestVlanSuccess();
  void DeletedDestVlanError();
  /// @}

  /// The HAL was found; every VLAN destination is to be installed.
  void ReinstallDestVlan();
};

/// Notifications on host destinations; carries an `AppDestHostMessage`.
class ZUSKUX_EXPORT MessageControllerHost : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerHost() override;

  /// The HAL answered a request for a host destination, whose ids are in the record.
  /// @{
  void CreatedDestHostSuccess();
  void CreatedDestHostError();
  void UpdatedDestHostSuccess();
  void UpdatedDestHostError();
  void DeletedDestHostSuccess();
  void DeletedDestHostError();
  /// @}

  /// The HAL was found; every host destination is to be installed.
  void ReinstallDestHost();
};

/// Notifications on ECMP groups, which have no update; carries an `AppDestEcmpMessage`.
class ZUSKUX_EXPORT MessageControllerEcmp : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerEcmp() override;

  /// The HAL answered a request for an ECMP group, whose ids are in the record.
  /// @{
  void CreatedDestEcmpSuccess();
  void CreatedDestEcmpError();
  void DeletedDestEcmpSuccess();
  void DeletedDestEcmpError();
  /// @}

  /// The HAL was found; every ECMP group is to be installed.
  void ReinstallDestEcmp();
};

/// Notifications on MPLS destinations; carries an `AppDestMplsMessage`.
class ZUSKUX_EXPORT MessageControllerMpls : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerMpls() override;

  /// The HAL answered a request for an MPLS destination, whose ids are in the record.
  /// @{
  void CreatedDestMplsSuccess();
  void CreatedDestMplsError();
  void UpdatedDestMplsSuccess();
  void UpdatedDestMplsError();
  void DeletedDestMplsSuccess();
  void DeletedDestMplsError();
  /// @}

  /// The HAL was found; every MPLS destination is to be installed.
  void ReinstallDestMpls();
};

/// Notifications on VRFs, whose requests have no result; carries an `AppVrfMessage`.
class ZUSKUX_EXPORT VrfController : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~VrfController() override;

  /// The HAL was found; every VRF is to be installed.
  void ReinstallVrf();
};

}  // namespace dest_mng

#endif  // ZUSKUX_DEST_CONTROLLERS_H_
