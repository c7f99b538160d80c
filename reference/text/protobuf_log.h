#ifndef ZUSKUX_REFERENCE_TEXT_PROTOBUF_LOG_H_
#define ZUSKUX_REFERENCE_TEXT_PROTOBUF_LOG_H_

#include <google/protobuf/message.h>

namespace reference {

/// Stops protobuf's own lines on standard error, such as those on strings that are not UTF-8. For
/// programs with their own error messages. Call before other threads start.
inline void SilenceProtobufLog() { google::protobuf::SetLogHandler(nullptr); }

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_PROTOBUF_LOG_H_
