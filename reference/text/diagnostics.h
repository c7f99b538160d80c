#ifndef ZUSKUX_REFERENCE_TEXT_DIAGNOSTICS_H_
#define ZUSKUX_REFERENCE_TEXT_DIAGNOSTICS_H_

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace reference {

/// A place in a text, counted from 1. Zeros mean the whole text.
struct Place {
  int line = 0;
  int column = 0;
};

bool operator<(const Place& a, const Place& b);

/// A warning does not keep the text from being used.
enum class Severity : std::uint8_t { kError, kWarning };

/// "error" or "warning".
std::string_view SeverityName(Severity severity);

/// One mistake in a text that people write: where it is, what is wrong and how to fix it.
struct Diagnostic {
  Place place;
  std::string text;
  Severity severity = Severity::kError;
};

/// The number of diagnostics of one severity.
std::size_t Count(const std::vector<Diagnostic>& diagnostics, Severity severity);

/// "<file>:<line>:<column>: <text>", without numbers that are 0; "warning: " precedes the text of a
/// warning. Safe to print.
std::string FormatDiagnostic(const std::string& file, const Diagnostic& diagnostic);

/// Inclusive.
struct Range {
  std::int64_t first = 0;
  std::int64_t last = std::numeric_limits<std::uint32_t>::max();

  bool Contains(std::int64_t value) const { return first <= value && value <= last; }
};

/// "mtu 70000 is out of range; use 0 to 65535".
std::string OutOfRangeText(std::string_view name, std::int64_t value, Range range);

/// "a, b, c".
std::string Join(const std::vector<std::string_view>& words);

/// Collects the mistakes of one text, so that one reading reports all of them.
class Diagnostics {
 public:
  void Add(Place place, std::string text, Severity severity = Severity::kError);
  /// If `value` is out of `range`, adds a mistake and returns false.
  bool CheckRange(Place place, std::string_view name, std::int64_t value, Range range);

  bool empty() const { return diagnostics_.empty(); }
  /// In file order.
  std::vector<Diagnostic> Take();

 private:
  std::vector<Diagnostic> diagnostics_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_DIAGNOSTICS_H_
