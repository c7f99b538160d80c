#ifndef ZUSKUX_REFERENCE_MANAGER_NOTIFICATION_SINK_H_
#define ZUSKUX_REFERENCE_MANAGER_NOTIFICATION_SINK_H_

#include <cstdint>

#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"

namespace reference {

/// The outcome of a request, as a controller's handler is told.
struct HalResult {
  HalKind kind = HalKind::kVlan;
  HalAction action = HalAction::kInstall;
  bool success = true;
  /// Why not, where it was no success.
  HalReturnCode code = kHalSuccess;
  std::uint32_t id = 0;
};

/// Where the controllers' handlers put what they are told. Called on the HAL's thread, which must
/// not be kept.
class NotificationSink {
 public:
  NotificationSink() = default;
  NotificationSink(const NotificationSink&) = delete;
  NotificationSink& operator=(const NotificationSink&) = delete;
  virtual ~NotificationSink() = default;

  virtual void OnResult(const HalResult& result) = 0;
  /// All objects of the kind are to be installed again.
  virtual void OnReinstall(HalKind kind) = 0;
};

/// Registers the one sink of the process; null unregisters, after which the old one is not called
/// any more. Without a sink, notifications are dropped. Not owned. Callable on any thread.
void SetNotificationSink(NotificationSink* sink);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_NOTIFICATION_SINK_H_
