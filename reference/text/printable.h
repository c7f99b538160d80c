#ifndef ZUSKUX_REFERENCE_TEXT_PRINTABLE_H_
#define ZUSKUX_REFERENCE_TEXT_PRINTABLE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace reference {

/// Makes text from outside (names in files, file names, what a peer says) safe for a terminal, a
/// log or a file: one line that shows what it holds and controls nothing.
///
/// UTF-8 stays as it is. Escaped, in the notation of protobuf's text format, are:
///  - control characters, C1 (U+0080 to U+009F) included: `\n`, `\x1b`, `\u009b`;
///  - characters that reorder or break a line, or that nobody can see: `\u202e`, `\u2028`;
///  - bytes that are not UTF-8: `\xff`.
/// Backslashes stay, so that a line may be cleaned again when it is written.
///
/// Takes whole characters of at most `max_bytes` bytes of `text` together.
std::string Printable(std::string_view text, std::size_t max_bytes = std::string_view::npos);

/// Whether `Printable` leaves all of `text` as it is.
bool IsPrintable(std::string_view text);

/// `Printable` in double quotes, with `"` and `\` escaped: unambiguous, and valid in a file in
/// protobuf's text format.
std::string Quote(std::string_view text, std::size_t max_bytes = std::string_view::npos);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_PRINTABLE_H_
