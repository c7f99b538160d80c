#include "hai/framed_payload.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <limits>

namespace dest_mng {
namespace {

constexpr std::size_t kLengthOffset = 4;
constexpr std::size_t kPayloadOffset = 8;

}  // namespace

std::string_view FramedPayload(const void* frame) {
  const auto* bytes = static_cast<const char*>(frame);
  std::uint32_t length = 0;
  std::memcpy(&length, bytes + kLengthOffset, sizeof length);
  return {bytes + kPayloadOffset, ntohl(length)};
}

bool ParsePayload(std::string_view payload, google::protobuf::MessageLite* message) {
  if (payload.size() > std::numeric_limits<int>::max()) {
    message->Clear();
    return false;
  }
  return message->ParseFromArray(payload.data(), static_cast<int>(payload.size()));
}

}  // namespace dest_mng
