#ifndef ZUSKUX_PLATFORM_APP_FRAMEWORK_STRATEGY_H_
#define ZUSKUX_PLATFORM_APP_FRAMEWORK_STRATEGY_H_

namespace app_strategy {

/// A step that a host can attach to a message controller. Owned by its creator; runs on the thread
/// that calls `MessageController::DoStrategy`.
class __attribute__((visibility("default"))) Strategy {
 public:
  Strategy() = default;
  Strategy(const Strategy&) = delete;
  Strategy& operator=(const Strategy&) = delete;
  virtual ~Strategy();

  /// Runs the step.
  virtual void Execute() = 0;
};

}  // namespace app_strategy

#endif  // ZUSKUX_PLATFORM_APP_FRAMEWORK_STRATEGY_H_
