#ifndef ZUSKUX_REFERENCE_RECORD_FORMAT_H_
#define ZUSKUX_REFERENCE_RECORD_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace reference {

/// What the header of a recording says of its format; see record.proto.
inline constexpr std::string_view kRecordingFormat = "zuskux recording";
inline constexpr std::uint32_t kRecordingFormatVersion = 1;

/// Bytes of a record at most, its length prefix not counted.
inline constexpr std::size_t kMaxRecordSize = std::size_t{1} << 20;

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_FORMAT_H_
