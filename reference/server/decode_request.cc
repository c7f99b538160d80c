#include "reference/server/decode_request.h"

namespace reference {

bool DecodeRequest(const FrameSplitter::Frame& frame, HalRequest* request,
                   const std::function<void(const google::protobuf::Message&)>& use) {
  request->operation = static_cast<HalOperation>(frame.header.type);
  request->id = 0;
  request->secondary_id = 0;
  request->payload = frame.payload;
  return VisitKind(KindOf(request->operation), [&](auto row) {
    using Kind = decltype(row);
    // A new wrapper for each frame, because a wrapper does not delete an earlier frame's message.
    typename Kind::Wrapper wrapper;
    // The wrapper does not modify the frame.
    if (!wrapper.Unserialize(const_cast<char*>(frame.whole.data()))) return false;
    const auto& message = static_cast<const typename Kind::Message&>(*wrapper.message());
    request->id = Kind::Id(message).value_or(0);
    request->secondary_id = Kind::SecondaryId(message);
    if (use) use(message);
    return true;
  });
}

}  // namespace reference
