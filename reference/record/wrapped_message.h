#ifndef ZUSKUX_REFERENCE_RECORD_WRAPPED_MESSAGE_H_
#define ZUSKUX_REFERENCE_RECORD_WRAPPED_MESSAGE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "app_framework/app_message.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"
#include "reference/hal/hal_request.h"

namespace reference {

/// A recorded message in the printable message of its kind.
struct WrappedMessage {
  /// Null if the payload does not decode.
  std::unique_ptr<AppMessage> message;
  /// `*message`.
  const HalL3MplsEncapsulationPrintable* printable = nullptr;
};

WrappedMessage WrapMessage(HalKind kind, const std::string& payload);

/// The printable message's own full rendering, but with `address` as its address; "unknown" if
/// there is none.
std::string Render(const WrappedMessage& wrapped, std::optional<std::uint64_t> address);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_WRAPPED_MESSAGE_H_
