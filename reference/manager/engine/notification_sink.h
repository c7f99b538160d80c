#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_NOTIFICATION_SINK_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_NOTIFICATION_SINK_H_

#include <cstdint>
#include <string>

#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"

namespace reference {

/// The outcome of a request, as a controller's handler receives it.
struct HalResult {
  HalKind kind = HalKind::kVlan;
  HalAction action = HalAction::kInstall;
  bool success = true;
  /// The reason for a failure.
  HalReturnCode code = kHalSuccess;
  std::uint32_t id = 0;
  /// The HAL's reason for the failure; may be empty.
  std::string reason;
};

/// Receives what the controllers' handlers forward. Called on the HAL's thread, which it must not
/// block.
class NotificationSink {
 public:
  NotificationSink() = default;
  NotificationSink(const NotificationSink&) = delete;
  NotificationSink& operator=(const NotificationSink&) = delete;
  virtual ~NotificationSink() = default;

  virtual void OnResult(const HalResult& result) = 0;
  /// Install all objects of the kind again.
  virtual void OnReinstall(HalKind kind) = 0;
};

/// Registers the process's only sink. Null unregisters; after that returns, the old sink is not
/// called any more. Without a sink, notifications are dropped. Not owned. Callable on any thread.
void SetNotificationSink(NotificationSink* sink);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_NOTIFICATION_SINK_H_
