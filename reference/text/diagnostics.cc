#include "reference/text/diagnostics.h"

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <tuple>
#include <utility>

#include "reference/text/printable.h"

namespace reference {

bool operator<(const Place& a, const Place& b) {
  return std::tie(a.line, a.column) < std::tie(b.line, b.column);
}

std::string_view SeverityName(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

std::size_t Count(const std::vector<Diagnostic>& diagnostics, Severity severity) {
  return static_cast<std::size_t>(std::count_if(
      diagnostics.begin(), diagnostics.end(),
      [severity](const Diagnostic& diagnostic) { return diagnostic.severity == severity; }));
}

std::string FormatDiagnostic(const std::string& file, const Diagnostic& diagnostic) {
  std::string text = file + ':';
  for (const int number : {diagnostic.place.line, diagnostic.place.column}) {
    if (number != 0) text += std::to_string(number) + ':';
  }
  if (diagnostic.severity == Severity::kWarning) text += " warning:";
  return Printable(text + ' ' + diagnostic.text);
}

std::string OutOfRangeText(std::string_view name, std::int64_t value, Range range) {
  return std::string(name) + ' ' + std::to_string(value) + " is out of range; use " +
         std::to_string(range.first) + " to " + std::to_string(range.last);
}

std::string Join(const std::vector<std::string_view>& words) {
  return boost::algorithm::join(std::vector<std::string>(words.begin(), words.end()), ", ");
}

void Diagnostics::Add(Place place, std::string text, Severity severity) {
  diagnostics_.push_back({place, std::move(text), severity});
}

bool Diagnostics::CheckRange(Place place, std::string_view name, std::int64_t value, Range range) {
  if (range.Contains(value)) return true;
  Add(place, OutOfRangeText(name, value, range));
  return false;
}

std::vector<Diagnostic> Diagnostics::Take() {
  std::stable_sort(diagnostics_.begin(), diagnostics_.end(),
                   [](const Diagnostic& a, const Diagnostic& b) { return a.place < b.place; });
  return std::move(diagnostics_);
}

}  // namespace reference
