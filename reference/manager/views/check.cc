#include "reference/manager/views/check.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

std::size_t Total(const std::vector<CheckedFile>& files, Severity severity) {
  std::size_t total = 0;
  for (const CheckedFile& file : files) total += Count(file.findings.diagnostics, severity);
  return total;
}

// "1 file", "2 files".
std::string Counted(std::size_t count, std::string_view noun) {
  std::string text = std::to_string(count) + ' ';
  text += noun;
  return count == 1 ? text : text + 's';
}

}  // namespace

bool HasErrors(const std::vector<CheckedFile>& files) {
  return Total(files, Severity::kError) != 0;
}

std::string CheckSummary(const std::vector<CheckedFile>& files) {
  const std::size_t errors = Total(files, Severity::kError);
  const std::size_t warnings = Total(files, Severity::kWarning);
  std::string text;
  if (errors != 0) text = Counted(errors, SeverityName(Severity::kError));
  if (errors != 0 && warnings != 0) text += " and ";
  if (warnings != 0) text += Counted(warnings, SeverityName(Severity::kWarning));
  if (text.empty()) return text;
  return text + " in " + Counted(files.size(), "file") + "; nothing was programmed";
}

void WriteChecked(const CheckedFile& file, std::ostream* out) {
  *out << Printable(file.path) << ": " << Counted(file.findings.objects, "object") << '\n';
}

void WriteCheckAsJson(const std::vector<CheckedFile>& files, std::ostream* out) {
  nlohmann::ordered_json json;
  json["files"] = nlohmann::ordered_json::array();
  json["diagnostics"] = nlohmann::ordered_json::array();
  for (const CheckedFile& file : files) {
    nlohmann::ordered_json entry = {{"file", file.path}};
    // A file with mistakes describes no objects.
    if (!HasErrors({file})) entry["objects"] = file.findings.objects;
    json["files"].push_back(std::move(entry));
    for (const Diagnostic& diagnostic : file.findings.diagnostics) {
      json["diagnostics"].push_back({{"file", file.path},
                                     {"line", diagnostic.place.line},
                                     {"column", diagnostic.place.column},
                                     {"severity", SeverityName(diagnostic.severity)},
                                     {"message", diagnostic.text}});
    }
  }
  json["summary"] = {{"errors", Total(files, Severity::kError)},
                     {"warnings", Total(files, Severity::kWarning)}};
  *out << JsonText(json, 1) << '\n';
}

}  // namespace reference
