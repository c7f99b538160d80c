#ifndef ZUSKUX_REFERENCE_RECORD_FORMAT_H_
#define ZUSKUX_REFERENCE_RECORD_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace reference {

/// The format that the header of a recording states; see record.proto.
inline constexpr std::string_view kRecordingFormat = "zuskux recording";
inline constexpr std::uint32_t kRecordingFormatVersion = 1;

/// Maximum size of a record in bytes, excluding its length prefix.
inline constexpr std::size_t kMaxRecordSize = std::size_t{1} << 20;

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_RECORD_FORMAT_H_
