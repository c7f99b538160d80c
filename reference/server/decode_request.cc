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
    // A fresh one for each frame: a wrapper does not delete what an earlier frame left in it.
    typename Kind::Wrapper wrapper;
    // The wrapper only reads the frame.
    if (!wrapper.Unserialize(const_cast<char*>(frame.whole.data()))) return false;
    const auto& message = static_cast<const typename Kind::Message&>(*wrapper.message());
    request->id = Kind::Id(message).value_or(0);
    request->secondary_id = Kind::SecondaryId(message);
    if (use) use(message);
    return true;
  });
}

}  // namespace reference
