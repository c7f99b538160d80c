#include "reference/wire/frame.h"

#include <algorithm>
#include <array>
#include <boost/endian/conversion.hpp>
#include <limits>

#include "reference/hal/kinds.h"

namespace reference {
namespace {

using boost::endian::native_to_big;

constexpr int kTypeShift = 24;
constexpr std::size_t kNumberSize = 4;
constexpr std::size_t kResultSize = 4 * kNumberSize;

// Whether it is a value of `FrameType` itself; all other valid types are requests.
constexpr bool IsOwnType(std::uint8_t type) {
  switch (static_cast<FrameType>(type)) {
    case FrameType::kHello:
    case FrameType::kGoodbye:
    case FrameType::kResult:
    case FrameType::kBeginReinstall:
    case FrameType::kEndReinstall:
    case FrameType::kInSync:
    case FrameType::kHeartbeat:
    case FrameType::kReadTables:
    case FrameType::kTableEntry:
    case FrameType::kTableEnd:
    case FrameType::kObjectStates:
      return true;
  }
  return false;
}

constexpr int OperationsWithAnotherFramesType() {
  int count = 0;
  for (const OperationTraits& operation : kAllHalOperations) {
    count += IsOwnType(static_cast<std::uint8_t>(operation.operation)) ? 1 : 0;
  }
  return count;
}
static_assert(OperationsWithAnotherFramesType() == 0,
              "an operation has the value of another frame type");

using Header = std::array<std::uint32_t, kFrameHeaderSize / kNumberSize>;

std::uint32_t NumberAt(std::string_view bytes, std::size_t offset) {
  return boost::endian::load_big_u32(reinterpret_cast<const unsigned char*>(bytes.data()) + offset);
}

Header MakeHeader(FrameType type, std::uint32_t sequence, std::size_t payload_size) {
  const std::uint32_t word =
      (static_cast<std::uint32_t>(type) << kTypeShift) | (sequence & kSequenceMask);
  return {native_to_big(word), native_to_big(static_cast<std::uint32_t>(payload_size))};
}

// Appends big-endian numbers.
template <std::size_t N>
void AppendNumbers(const std::array<std::uint32_t, N>& numbers, std::string* out) {
  out->append(reinterpret_cast<const char*>(numbers.data()), sizeof numbers);
}

}  // namespace

bool IsFrameType(std::uint8_t type) { return IsOwnType(type) || IsHalOperation(type); }

bool IsRequest(FrameType type) { return IsHalOperation(static_cast<std::uint8_t>(type)); }

void AppendFrame(FrameType type, std::uint32_t sequence, std::string_view payload,
                 std::string* out) {
  AppendNumbers(MakeHeader(type, sequence, payload.size()), out);
  out->append(payload);
}

void AppendResult(std::uint32_t sequence, const ResultPayload& result, std::string* out) {
  constexpr std::chrono::nanoseconds kLongest{std::numeric_limits<std::uint32_t>::max()};
  const auto hal_time = static_cast<std::uint32_t>(std::min(result.hal_time, kLongest).count());
  const std::string_view reason = result.reason.substr(0, kMaxReason);
  const Header header = MakeHeader(FrameType::kResult, sequence, kResultSize + reason.size());
  const std::array frame = {header[0],
                            header[1],
                            native_to_big(static_cast<std::uint32_t>(result.code)),
                            native_to_big(result.id),
                            native_to_big(result.secondary_id),
                            native_to_big(hal_time)};
  static_assert(sizeof frame == kFrameHeaderSize + kResultSize);
  AppendNumbers(frame, out);
  if (!reason.empty()) out->append(reason);
}

std::optional<ResultPayload> ParseResult(std::string_view payload) {
  if (payload.size() < kResultSize || payload.size() > kResultSize + kMaxReason) {
    return std::nullopt;
  }
  return ResultPayload{static_cast<HalReturnCode>(NumberAt(payload, 0)),
                       NumberAt(payload, kNumberSize), NumberAt(payload, 2 * kNumberSize),
                       std::chrono::nanoseconds(NumberAt(payload, 3 * kNumberSize)),
                       payload.substr(kResultSize)};
}

FrameSplitter::FrameSplitter(std::size_t max_payload) : max_payload_(max_payload) {}

void FrameSplitter::Feed(std::string_view bytes) {
  if (invalid_) return;
  // Once `Next` returns nothing, less than a frame is left, so each byte moves at most once.
  buffer_.erase(0, consumed_);
  consumed_ = 0;
  buffer_.append(bytes);
}

std::optional<FrameSplitter::Frame> FrameSplitter::Next() {
  const std::string_view rest(buffer_.data() + consumed_, buffer_.size() - consumed_);
  if (rest.size() < kFrameHeaderSize) return std::nullopt;

  const std::uint32_t word = NumberAt(rest, 0);
  const std::uint32_t size = NumberAt(rest, kNumberSize);
  const auto type = static_cast<std::uint8_t>(word >> kTypeShift);
  if (!IsFrameType(type)) {
    invalid_ = true;
    throw ProtocolError("unknown frame type " + std::to_string(type));
  }
  if (size > max_payload_) {
    invalid_ = true;
    throw ProtocolError("payload of " + std::to_string(size) +
                        " bytes is longer than the limit of " + std::to_string(max_payload_));
  }
  if (rest.size() - kFrameHeaderSize < size) return std::nullopt;

  consumed_ += kFrameHeaderSize + size;
  return Frame{{static_cast<FrameType>(type), word & kSequenceMask, size},
               {rest.data() + kFrameHeaderSize, size},
               {rest.data(), kFrameHeaderSize + size}};
}

}  // namespace reference
