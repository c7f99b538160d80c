#include "reference/server/request_decoder.h"

namespace reference {

const google::protobuf::Message* RequestDecoder::Decode(const FrameSplitter::Frame& frame,
                                                        HalRequest* request) {
  request->operation = static_cast<HalOperation>(frame.header.type);
  request->id = 0;
  request->secondary_id = 0;
  request->payload.clear();
  return VisitKind(KindOf(request->operation), [&](auto row) -> const google::protobuf::Message* {
    using Kind = decltype(row);
    auto& message = std::get<typename Kind::Message>(messages_);
    if (!message.ParseFromArray(frame.payload.data(), static_cast<int>(frame.payload.size()))) {
      return nullptr;
    }
    request->id = Kind::Id(message).value_or(0);
    request->secondary_id = Kind::SecondaryId(message);
    return &message;
  });
}

}  // namespace reference
