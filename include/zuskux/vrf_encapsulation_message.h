#ifndef ZUSKUX_VRF_ENCAPSULATION_MESSAGE_H_
#define ZUSKUX_VRF_ENCAPSULATION_MESSAGE_H_

#include <string>

#include "app_framework/app_message.h"
#include "base_encap_message.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"
#include "zuskux/export.h"

/// A VRF's layer-3 ingress interface on its way to or from the HAL. Holds one
/// `encapsulation::VrfMessage` by value, renders it and parses it from a received buffer.
///
/// The adapter makes one on its stack for each request. Used by one thread at a time.
class ZUSKUX_EXPORT VrfEncapsulationMessage : public AppMessage,
                                              public HalL3MplsEncapsulationPrintable {
 public:
  VrfEncapsulationMessage();
  ~VrfEncapsulationMessage() override;

  /// Parses a frame: an ignored header word, the payload length (32 bits, big-endian), the payload.
  /// `buffer` must hold the whole frame. Returns whether the payload parsed. The previous content
  /// is lost either way.
  bool Unserialize(void* buffer) override;

  /// One line: the fields of the message, whatever `full` says. Deliberately omits the address.
  std::string ToString(bool full) const override;

  /// The message held here, which `message()` points to.
  encapsulation::VrfMessage* encap() { return &encap_; }

 private:
  encapsulation::VrfMessage encap_;
};

#endif  // ZUSKUX_VRF_ENCAPSULATION_MESSAGE_H_
