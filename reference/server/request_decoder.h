#ifndef ZUSKUX_REFERENCE_SERVER_REQUEST_DECODER_H_
#define ZUSKUX_REFERENCE_SERVER_REQUEST_DECODER_H_

#include <google/protobuf/message.h>

#include <tuple>

#include "reference/hal/hal_request.h"
#include "reference/hal/kinds.h"
#include "reference/wire/frame.h"

namespace reference {

/// Decodes request frames. Keeps one message of each kind and parses into it, because parsing into
/// a new message would mostly allocate and free memory. Used by one thread at a time.
class RequestDecoder {
 public:
  /// Fills `request` from a request frame, without the payload. Returns the parsed message, which
  /// is of the kind's class and valid until the next call; null if the payload does not parse. Then
  /// both ids are 0.
  const google::protobuf::Message* Decode(const FrameSplitter::Frame& frame, HalRequest* request);

 private:
  template <typename Rows>
  struct MessagesOf;
  template <typename... Row>
  struct MessagesOf<std::tuple<Row...>> {
    using Type = std::tuple<typename Row::Message...>;
  };

  // What an earlier, larger request allocated is reused and freed only with the decoder. The
  // server's payload limit bounds it.
  MessagesOf<Kinds>::Type messages_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_REQUEST_DECODER_H_
