#ifndef ZUSKUX_HAI_FRAMED_PAYLOAD_H_
#define ZUSKUX_HAI_FRAMED_PAYLOAD_H_

#include <google/protobuf/message_lite.h>

#include <string_view>

namespace dest_mng {

/// The payload of `frame`, in place: bytes 0 to 3 are ignored, bytes 4 to 7 are the payload length
/// (big-endian), the payload follows.
std::string_view FramedPayload(const void* frame);

/// Parses `payload` into `message` and returns whether it parsed. A length that protobuf cannot
/// handle leaves `message` empty and the payload unread.
bool ParsePayload(std::string_view payload, google::protobuf::MessageLite* message);

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_FRAMED_PAYLOAD_H_
