#include "benchmarks/consumer.h"

#include <stdexcept>

#include "reference/wire/frame.h"

namespace bench {
namespace {

constexpr std::size_t kTableSize = 10'000'000;

bool Stores(std::string_view work) {
  if (work == "store") return true;
  if (work == "carry") return false;
  throw std::runtime_error("the work must be store or carry");
}

}  // namespace

Consumer::Consumer(std::string_view work) : stores_(Stores(work)), tables_(kTableSize) {}

Consumer::Outcome Consumer::Answer(reference::HalOperation operation, std::string_view payload) {
  if (!stores_) return {};
  const auto type = static_cast<reference::FrameType>(operation);
  const auto size = static_cast<std::uint32_t>(payload.size());
  const google::protobuf::Message* const message =
      decoder_.Decode({{type, 0, size}, payload, {}}, &request_);
  const reference::HalReturnCode code =
      message == nullptr ? reference::kHalBadRequest : tables_.Apply(operation, payload, *message);
  return {code, request_.id, request_.secondary_id};
}

}  // namespace bench
