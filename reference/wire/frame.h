#ifndef ZUSKUX_REFERENCE_WIRE_FRAME_H_
#define ZUSKUX_REFERENCE_WIRE_FRAME_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "reference/hal/entry_hash.h"
#include "reference/hal/hal_code.h"

namespace reference {

// The frames between HAL client and HAL server, in both directions: a 4-byte header word, a 4-byte
// payload length and the payload. All numbers are big-endian. The header word holds the frame type
// in its highest byte and a sequence number in the other three.

inline constexpr std::uint32_t kProtocolVersion = 1;
inline constexpr std::uint32_t kProtocolMinorVersion = 4;
/// From this minor version on, clients understand a reason in a result.
inline constexpr std::uint32_t kMinorVersionWithReasons = 2;
/// From this minor version on, clients understand `kObjectStates`.
inline constexpr std::uint32_t kMinorVersionWithObjectStates = 3;
/// From this minor version on, both sides understand digests by XXH3.
inline constexpr std::uint32_t kMinorVersionWithXxh3 = 4;
inline constexpr std::size_t kFrameHeaderSize = 8;
inline constexpr std::uint32_t kSequenceMask = 0xFFFFFF;
inline constexpr std::size_t kDefaultMaxPayload = std::size_t{64} * 1024;
/// The maximum length of a result's reason, in bytes.
inline constexpr std::size_t kMaxReason = 256;

enum class FrameType : std::uint8_t {
  /// Both sides, first: payload `wire.Hello`.
  kHello = 1,
  /// Server: ends the conversation. The payload is one line of text for the operator, the sequence
  /// a `GoodbyeReason`.
  kGoodbye = 2,
  // The values of `HalOperation` (3 to 15): requests; the payload is the kind's message. New types
  // and new operations take values from 25.
  /// Server: the payload is the code, the id, the secondary id, and how long the server had the
  /// request, in nanoseconds, at most 2^32 - 1 (4 bytes each), then the reason for a refusal, if
  /// there is one and the client understands it. The sequence is the request's. VRF requests are
  /// answered too.
  kResult = 16,
  /// Client; no payload.
  kBeginReinstall = 17,
  /// Client; no payload.
  kEndReinstall = 18,
  /// Server: answers `kEndReinstall` with the same sequence. Payload `wire.TableSummary`.
  kInSync = 19,
  /// Client: asks for a sign of life; the server answers with the same frame. No payload.
  kHeartbeat = 20,
  /// Client: no payload. The server answers with `kTableEntry` frames and one `kTableEnd`, with the
  /// same sequence.
  kReadTables = 21,
  /// Server: the payload is the kind (1 byte), the id (4 bytes) and the stored message.
  kTableEntry = 22,
  /// Server: payload `wire.ServerStatus`.
  kTableEnd = 23,
  /// Server, to the writer, if it understands this: payload `wire.ObjectStates`, the objects whose
  /// state has changed since their result. Sequence 0.
  kObjectStates = 24,
};

/// Why a server says goodbye, if the client needs to know.
enum class GoodbyeReason : std::uint32_t {
  kOther = 0,
  /// Another client is the writer.
  kOtherWriter = 1,
  /// Another client has taken over as the writer.
  kTakenOver = 2,
};

/// The hash function of the digests in a conversation with a peer of that minor version.
constexpr EntryHashFunction EntryHashFunctionWith(std::uint32_t peer_minor_version) {
  return peer_minor_version >= kMinorVersionWithXxh3 ? EntryHashFunction::kXxh3
                                                     : EntryHashFunction::kFnv1a;
}

struct FrameHeader {
  FrameType type = FrameType::kHello;
  std::uint32_t sequence = 0;
  std::uint32_t payload_size = 0;
};

/// Whether `type` is one of the values above or a request.
bool IsFrameType(std::uint8_t type);
/// Whether frames of the type are requests.
bool IsRequest(FrameType type);

/// Appends header and payload to `out`. `sequence` is truncated to 24 bits.
void AppendFrame(FrameType type, std::uint32_t sequence, std::string_view payload,
                 std::string* out);

struct ResultPayload {
  HalReturnCode code{};
  std::uint32_t id = 0;
  std::uint32_t secondary_id = 0;
  /// Never negative.
  std::chrono::nanoseconds hal_time{0};
  /// One line of text for the operator: why the HAL refused the request; empty for none. Not owned.
  std::string_view reason{};
};

/// Appends a `kResult` frame. Truncates the reason after `kMaxReason` bytes.
void AppendResult(std::uint32_t sequence, const ResultPayload& result, std::string* out);

/// Parses the payload of a `kResult` frame, to which the reason refers; nothing if its size is
/// wrong.
std::optional<ResultPayload> ParseResult(std::string_view payload);

/// What the peer sent breaks the protocol; close the connection.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Splits a byte stream into frames without copying them. The longest allowed frame bounds the
/// memory, because the length is checked before anything is stored.
///
///     splitter.Feed(bytes);                      // what a read returned
///     while (auto frame = splitter.Next()) ...   // views, valid until the next Feed
class FrameSplitter {
 public:
  struct Frame {
    FrameHeader header;
    std::string_view payload;
    /// Header and payload together.
    std::string_view whole;
  };

  explicit FrameSplitter(std::size_t max_payload);

  /// Ignores the bytes once `Next` has thrown.
  void Feed(std::string_view bytes);
  /// The next whole frame; nothing if more bytes are needed. Throws `ProtocolError` if the stream
  /// is invalid from here on, and again at each later call.
  std::optional<Frame> Next();

 private:
  std::size_t max_payload_;
  std::string buffer_;
  std::size_t consumed_ = 0;
  bool invalid_ = false;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_FRAME_H_
