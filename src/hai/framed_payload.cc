#include "hai/framed_payload.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <limits>

namespace {

constexpr std::size_t kLengthOffset = 4;
constexpr std::size_t kPayloadOffset = 8;

}  // namespace

bool ParseFramedPayload(const void* frame, google::protobuf::MessageLite* message) {
  const auto* bytes = static_cast<const char*>(frame);
  std::uint32_t length = 0;
  std::memcpy(&length, bytes + kLengthOffset, sizeof length);
  length = ntohl(length);
  if (length > std::numeric_limits<int>::max()) {
    message->Clear();
    return false;
  }
  return message->ParseFromArray(bytes + kPayloadOffset, static_cast<int>(length));
}
