#ifndef ZUSKUX_ECMP_ENCAPSULATION_MESSAGE_H_
#define ZUSKUX_ECMP_ENCAPSULATION_MESSAGE_H_

#include <string>

#include "app_framework/app_message.h"
#include "base_encap_message.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"
#include "zuskux/export.h"

/// An ECMP group on its way to or from the HAL. Holds one `encapsulation::EcmpMessage` by value,
/// renders it and parses it from a received buffer.
///
/// The adapter makes one on its stack for each request. Used by one thread at a time.
class ZUSKUX_EXPORT EcmpEncapsulationMessage : public AppMessage,
                                               public HalL3MplsEncapsulationPrintable {
 public:
  EcmpEncapsulationMessage();
  ~EcmpEncapsulationMessage() override;

  /// Parses a frame: an ignored header word, the payload length (32 bits, big-endian), the payload.
  /// `buffer` must hold the whole frame. Returns whether the payload parsed. The previous content
  /// is lost either way.
  bool Unserialize(void* buffer) override;

  /// One line: the object's name and address and, if `full`, the fields of the message.
  std::string ToString(bool full) const override;

  /// The message held here, which `message()` points to.
  encapsulation::EcmpMessage* encap() { return &encap_; }

 private:
  encapsulation::EcmpMessage encap_;
};

#endif  // ZUSKUX_ECMP_ENCAPSULATION_MESSAGE_H_
