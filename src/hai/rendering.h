#ifndef ZUSKUX_HAI_RENDERING_H_
#define ZUSKUX_HAI_RENDERING_H_

#include <google/protobuf/message.h>

#include <string>
#include <string_view>

#include "hai/text.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"

namespace dest_mng {

/// The message under a wrapper, as a rendering shows it: a missing one reads like an empty one.
template <typename Message>
const Message& MessageOrEmpty(const google::protobuf::Message* carried) {
  return carried == nullptr ? Message::default_instance() : static_cast<const Message&>(*carried);
}

/// Appends "<class_name>(this=<address>)", the start of a rendering. `object` is the whole wrapper.
/// `printable` is its printable base, which formats the hexadecimal numbers.
void AppendObject(std::string_view class_name, const void* object,
                  const HalL3MplsEncapsulationPrintable& printable, Text* text);

/// Appends the part about a logical interface: its name, type and index as the platform knows them.
/// The first 4 bytes of `lim_id` are the id in host byte order; missing bytes read as 0.
void AppendLimId(const std::string& lim_id, const HalL3MplsEncapsulationPrintable& printable,
                 Text* text);

/// Appends "mac address(<address>)" with the first 6 bytes of `mac`; missing bytes read as 0.
void AppendMacAddress(const std::string& mac, Text* text);

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_RENDERING_H_
