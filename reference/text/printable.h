#ifndef ZUSKUX_REFERENCE_TEXT_PRINTABLE_H_
#define ZUSKUX_REFERENCE_TEXT_PRINTABLE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace reference {

/// Makes foreign text (names in files, file names, messages from a peer) safe for a terminal, a log
/// or a file: one line that shows the content but controls nothing.
///
/// Printable UTF-8 stays unchanged. Escaped, in the notation of protobuf's text format, are:
///  - control characters, including C1 (U+0080 to U+009F): `\n`, `\x1b`, `\u009b`;
///  - characters that reorder or break a line, or that are invisible: `\u202e`, `\u2028`;
///  - bytes that are not UTF-8: `\xff`.
///
/// Backslashes stay, so that cleaning a line again changes nothing.
///
/// Takes at most `max_bytes` bytes of `text`, in whole characters.
std::string Printable(std::string_view text, std::size_t max_bytes = std::string_view::npos);

/// The maximum length, in bytes, of a peer's text in a line of the log or of an error.
inline constexpr std::size_t kMaxForeignText = 200;

/// Whether `Printable` leaves `text` unchanged.
bool IsPrintable(std::string_view text);

/// `Printable` in double quotes, with `"` and `\` escaped: unambiguous, and valid in protobuf's
/// text format.
std::string Quote(std::string_view text, std::size_t max_bytes = std::string_view::npos);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_PRINTABLE_H_
