#ifndef ZUSKUX_DEST_APP_MESSAGES_H_
#define ZUSKUX_DEST_APP_MESSAGES_H_

#include <cstdint>
#include <string>

#include "app_framework/app_message.h"
#include "zuskux/export.h"

namespace dest_mng {

/// Carries a record of the destination manager to one of its controllers. The record is not owned:
/// it lives on the stack of whoever notifies the controller. The message itself lives on the heap
/// and belongs to the controller; both are used on the notifying thread only.
///
/// The order of the virtual operations and of the members is part of the binary interface.
class ZUSKUX_EXPORT AppDestMessage : public AppMessage {
 public:
  /// Carries `record`, which stays the caller's.
  explicit AppDestMessage(google::protobuf::Message* record) noexcept : AppMessage(record) {}
  ~AppDestMessage() override;

  /// Reads nothing and returns false: these messages are made in the process, never received.
  bool Unserialize(void* buffer) override;

 private:
  // Part of the layout that the framework expects; not used here.
  [[maybe_unused]] std::int32_t number_ = 0;
  std::string text_;
};

/// Carries a `DestVlanMessage`; as all the classes below, it exists so that the kind is known from
/// the run-time type.
class ZUSKUX_EXPORT AppDestVlanMessage : public AppDestMessage {
 public:
  using AppDestMessage::AppDestMessage;
  ~AppDestVlanMessage() override;
};

/// Carries a `DestHostMessage`.
class ZUSKUX_EXPORT AppDestHostMessage : public AppDestMessage {
 public:
  using AppDestMessage::AppDestMessage;
  ~AppDestHostMessage() override;
};

/// Carries a `DestEcmpRouteMessage`.
class ZUSKUX_EXPORT AppDestEcmpMessage : public AppDestMessage {
 public:
  using AppDestMessage::AppDestMessage;
  ~AppDestEcmpMessage() override;
};

/// Carries a `DestMplsMessage`.
class ZUSKUX_EXPORT AppDestMplsMessage : public AppDestMessage {
 public:
  using AppDestMessage::AppDestMessage;
  ~AppDestMplsMessage() override;
};

/// Carries a `VrfMessage`.
class ZUSKUX_EXPORT AppVrfMessage : public AppDestMessage {
 public:
  using AppDestMessage::AppDestMessage;
  ~AppVrfMessage() override;
};

}  // namespace dest_mng

#endif  // ZUSKUX_DEST_APP_MESSAGES_H_
