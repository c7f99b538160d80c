#ifndef ZUSKUX_VLAN_ENCAPSULATION_MESSAGE_H_
#define ZUSKUX_VLAN_ENCAPSULATION_MESSAGE_H_

#include <memory>
#include <string>

#include "app_framework/app_message.h"
#include "base_encap_message.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"
#include "zuskux/export.h"

/// A VLAN destination on its way to or from the HAL: owns one heap `encapsulation::VlanMessage`,
/// renders it and reads it from a received buffer.
///
/// The adapters make one on their stack for each request; a receiver makes one without a message
/// for each frame. Used by one thread at a time.
class ZUSKUX_EXPORT VlanEncapsulationMessage : public AppMessage,
                                               public HalL3MplsEncapsulationPrintable {
 public:
  /// Carries no message until `Unserialize`; renders like an empty one.
  VlanEncapsulationMessage() noexcept;

  /// Carries `message`, and owns it.
  explicit VlanEncapsulationMessage(std::unique_ptr<encapsulation::VlanMessage> message) noexcept;

  /// Deletes the carried message.
  ~VlanEncapsulationMessage() override;

  /// Parses a frame: a header word that is not read, the payload length (32 bits, big-endian), the
  /// payload. `buffer` must hold the whole frame. Returns whether the payload parsed; either way a
  /// new message is carried. An earlier message is deliberately not deleted.
  bool Unserialize(void* buffer) override;

  /// One line: the object's name and address, with `full` followed by the fields of the message.
  std::string ToString(bool full) const override;
};

#endif  // ZUSKUX_VLAN_ENCAPSULATION_MESSAGE_H_
