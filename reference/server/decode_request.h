#ifndef ZUSKUX_REFERENCE_SERVER_DECODE_REQUEST_H_
#define ZUSKUX_REFERENCE_SERVER_DECODE_REQUEST_H_

#include <google/protobuf/message.h>

#include <functional>

#include "reference/hal/hal_request.h"
#include "reference/wire/frame.h"

namespace reference {

/// Fills `request` from a request frame, which the wrapper of its kind reads. The payload is kept
/// as it came, so that both sides hash the same bytes. Returns whether the wrapper understood it;
/// if not, both ids are 0. `use`, which may be empty, is called with the message that it
/// understood.
bool DecodeRequest(const FrameSplitter::Frame& frame, HalRequest* request,
                   const std::function<void(const google::protobuf::Message&)>& use = {});

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_DECODE_REQUEST_H_
