#ifndef ZUSKUX_REFERENCE_SERVER_DECODE_REQUEST_H_
#define ZUSKUX_REFERENCE_SERVER_DECODE_REQUEST_H_

#include <google/protobuf/message.h>

#include <functional>

#include "reference/hal/hal_request.h"
#include "reference/wire/frame.h"

namespace reference {

/// Fills `request` from a request frame, which its kind's wrapper parses. Keeps the payload byte
/// for byte, so that both sides compute the same hash. Returns whether the wrapper could parse it;
/// if not, both ids are 0. Calls `use`, which may be empty, with the parsed message.
bool DecodeRequest(const FrameSplitter::Frame& frame, HalRequest* request,
                   const std::function<void(const google::protobuf::Message&)>& use = {});

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_DECODE_REQUEST_H_
