#ifndef ZUSKUX_VLAN_ENCAPSULATION_MESSAGE_H_
#define ZUSKUX_VLAN_ENCAPSULATION_MESSAGE_H_

#include <memory>
#include <string>

#include "app_framework/app_message.h"
#include "base_encap_message.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"
#include "zuskux/export.h"

/// A VLAN destination on its way to or from the HAL. Owns one heap `encapsulation::VlanMessage`,
/// renders it and parses it from a received buffer.
///
/// The adapters make one on their stack for each request. A receiver makes one without a message
/// for each frame. Used by one thread at a time.
class ZUSKUX_EXPORT VlanEncapsulationMessage : public AppMessage,
                                               public HalL3MplsEncapsulationPrintable {
 public:
  /// Carries no message until `Unserialize`; until then it renders like an empty one.
  VlanEncapsulationMessage() noexcept;

  /// Takes ownership of `message`.
  explicit VlanEncapsulationMessage(std::unique_ptr<encapsulation::VlanMessage> message) noexcept;

  /// Deletes the carried message.
  ~VlanEncapsulationMessage() override;

  /// Parses a frame: an ignored header word, the payload length (32 bits, big-endian), the payload.
  /// `buffer` must hold the whole frame. Returns whether the payload parsed; either way this
  /// carries a new message. Deliberately does not delete the previous one.
  bool Unserialize(void* buffer) override;

  /// One line: the object's name and address and, if `full`, the fields of the message.
  std::string ToString(bool full) const override;
};

#endif  // ZUSKUX_VLAN_ENCAPSULATION_MESSAGE_H_
