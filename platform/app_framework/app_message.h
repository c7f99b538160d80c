#ifndef ZUSKUX_PLATFORM_APP_FRAMEWORK_APP_MESSAGE_H_
#define ZUSKUX_PLATFORM_APP_FRAMEWORK_APP_MESSAGE_H_

namespace google::protobuf {
class Message;
}  // namespace google::protobuf

/// The application framework's message base: carries one protobuf message and can be filled from a
/// received buffer.
///
/// Each derived class decides whether it owns the carried message; this class never deletes it. An
/// object belongs to its creator and is used by one thread at a time.
///
/// The order of the virtual operations is part of the binary interface.
class __attribute__((visibility("default"))) AppMessage {
 public:
  AppMessage(const AppMessage&) = delete;
  AppMessage& operator=(const AppMessage&) = delete;
  virtual ~AppMessage();

  /// Fills the carried message from a received buffer, whose layout the derived class defines.
  /// Returns whether the buffer was valid.
  virtual bool Unserialize(void* buffer) = 0;

  /// The carried message, or null if there is none.
  google::protobuf::Message* message() const { return message_; }

 protected:
  /// Carries `message`, or null for none.
  explicit AppMessage(google::protobuf::Message* message) noexcept : message_(message) {}

  /// Replaces the pointer to the carried message without touching the previous message.
  void set_message(google::protobuf::Message* message) noexcept { message_ = message; }

 private:
  google::protobuf::Message* message_;
};

#endif  // ZUSKUX_PLATFORM_APP_FRAMEWORK_APP_MESSAGE_H_
