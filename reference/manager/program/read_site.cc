#include "reference/manager/program/read_site.h"

#include <utility>
#include <variant>
#include <vector>

#include "reference/manager/program/standard_error.h"
#include "reference/manager/views/check.h"
#include "reference/manager/views/progress.h"
#include "reference/site/site_reader.h"

namespace reference {

void LogDiagnostics(const std::string& path, const std::vector<Diagnostic>& diagnostics) {
  for (const Diagnostic& diagnostic : diagnostics) {
    StandardError().WriteDiagnostic(
        diagnostic.severity == Severity::kError ? LogLevel::kError : LogLevel::kWarning,
        FormatDiagnostic(path, diagnostic));
  }
}

std::optional<Site> ReadSiteOrLogMistakes(const std::string& path) {
  const Progress progress("reading " + path, &StandardError());
  auto result = ReadSiteFile(path);
  if (auto* const site = std::get_if<Site>(&result)) return std::move(*site);
  const auto& diagnostics = std::get<std::vector<Diagnostic>>(result);
  LogDiagnostics(path, diagnostics);
  LogLine(LogLevel::kError, CheckSummary({{path, {diagnostics, 0}}}));
  return std::nullopt;
}

}  // namespace reference
