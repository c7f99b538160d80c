#ifndef ZUSKUX_PLATFORM_APP_FRAMEWORK_MESSAGE_CONTROLLER_H_
#define ZUSKUX_PLATFORM_APP_FRAMEWORK_MESSAGE_CONTROLLER_H_

class AppMessage;

namespace app_strategy {
class Strategy;
}  // namespace app_strategy

namespace msg_ctrl {

/// The application framework's controller base: holds the application message that one of its
/// handlers will work on.
///
/// A controller lives on the stack of the operation that builds it and is used on that thread only.
///
/// The order of the virtual operations is part of the binary interface.
class __attribute__((visibility("default"))) MessageController {
 public:
  /// Takes ownership of `message`, which was allocated with `new`.
  explicit MessageController(AppMessage* message) noexcept;
  MessageController(const MessageController&) = delete;
  MessageController& operator=(const MessageController&) = delete;

  /// Deletes the application message.
  virtual ~MessageController();

  /// Attaches `strategy`, which the caller keeps; null detaches.
  virtual void set_strategy(app_strategy::Strategy* strategy);
  /// The attached strategy, or null.
  virtual app_strategy::Strategy* strategy() const;

  /// Executes the attached strategy; a no-op without one.
  virtual void DoStrategy();

  /// The application message given at construction.
  AppMessage* message() const;

 private:
  AppMessage* message_;
  app_strategy::Strategy* strategy_ = nullptr;
};

}  // namespace msg_ctrl

#endif  // ZUSKUX_PLATFORM_APP_FRAMEWORK_MESSAGE_CONTROLLER_H_
