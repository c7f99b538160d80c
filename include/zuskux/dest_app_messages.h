#ifndef ZUSKUX_DEST_APP_MESSAGES_H_
#define ZUSKUX_DEST_APP_MESSAGES_H_

#include <cstdint>
#include <string>

#include "app_framework/app_message.h"
#include "zuskux/export.h"

namespace dest_mng {

/// Carries a record of the destination manager to one of its controllers. The message lives on the
/// heap and the controller owns it. It does not own the record, which lives on the notifying
/// thread's stack. Both are used on that thread only.
///
/// The order of the virtual operations and of the members is part of the binary interface.
class ZUSKUX_EXPORT AppDestMessage : public AppMessage {
 public:
  /// Carries `record`; the caller keeps ownership.
  explicit AppDestMessage(google::protobuf::Message* record) noexcept : AppMessage(record) {}
  ~AppDestMessage() override;

  /// Returns false without reading `buffer`: these messages never arrive from outside the process.
  bool Unserialize(void* buffer) override;

 private:
  // Unused; part of the layout that the framework expects.
  [[maybe_unused]] std::int32_t number_ = 0;
  std::string text_;
};

/// Carries a `DestVlanMessage`. This class and those below exist so that the run-time type
/// identifies the kind.
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
