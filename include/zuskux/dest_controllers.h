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

  void CreatedDestVlanSuccess();
  void CreatedDestVlanError();
  void UpdatedDestVlanSuccess();
  void UpdatedDestVlanError();
  void DeletedDestVlanSuccess();
  void DeletedDestVlanError();
  void ReinstallDestVlan();
};

/// Notifications on host destinations; carries an `AppDestHostMessage`.
class ZUSKUX_EXPORT MessageControllerHost : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerHost() override;

  void CreatedDestHostSuccess();
  void CreatedDestHostError();
  void UpdatedDestHostSuccess();
  void UpdatedDestHostError();
  void DeletedDestHostSuccess();
  void DeletedDestHostError();
  void ReinstallDestHost();
};

/// Notifications on ECMP groups, which have no update; carries an `AppDestEcmpMessage`.
class ZUSKUX_EXPORT MessageControllerEcmp : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerEcmp() override;

  void CreatedDestEcmpSuccess();
  void CreatedDestEcmpError();
  void DeletedDestEcmpSuccess();
  void DeletedDestEcmpError();
  void ReinstallDestEcmp();
};

/// Notifications on MPLS destinations; carries an `AppDestMplsMessage`.
class ZUSKUX_EXPORT MessageControllerMpls : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~MessageControllerMpls() override;

  void CreatedDestMplsSuccess();
  void CreatedDestMplsError();
  void UpdatedDestMplsSuccess();
  void UpdatedDestMplsError();
  void DeletedDestMplsSuccess();
  void DeletedDestMplsError();
  void ReinstallDestMpls();
};

/// Notifications on VRFs, whose requests have no result; carries an `AppVrfMessage`.
class ZUSKUX_EXPORT VrfController : public msg_ctrl::MessageController {
 public:
  using msg_ctrl::MessageController::MessageController;
  ~VrfController() override;

  void ReinstallVrf();
};

}  // namespace dest_mng

#endif  // ZUSKUX_DEST_CONTROLLERS_H_
