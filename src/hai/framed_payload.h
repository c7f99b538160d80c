#ifndef ZUSKUX_HAI_FRAMED_PAYLOAD_H_
#define ZUSKUX_HAI_FRAMED_PAYLOAD_H_

#include <google/protobuf/message_lite.h>

/// Parses the payload of a frame into `message`: bytes 0 to 3 are not read, bytes 4 to 7 are the
/// payload length (big-endian), the payload follows. Returns whether it parsed; a length that
/// protobuf cannot take leaves `message` empty and the payload unread.
bool ParseFramedPayload(const void* frame, google::protobuf::MessageLite* message);

#endif  // ZUSKUX_HAI_FRAMED_PAYLOAD_H_
