#include "reference/manager/program/read_site.h"

#include <utility>
#include <variant>
#include <vector>

#include "reference/manager/program/standard_error.h"
#include "reference/manager/views/progress.h"
#include "reference/site/site_reader.h"

namespace reference {

std::optional<Site> ReadSiteOrLogMistakes(const std::string& path) {
  const Progress progress("reading " + path, &StandardError());
  auto result = ReadSiteFile(path);
  if (auto* const site = std::get_if<Site>(&result)) return std::move(*site);
  for (const Diagnostic& mistake : std::get<std::vector<Diagnostic>>(result)) {
    StandardError().WriteDiagnostic(LogLevel::kError, FormatDiagnostic(path, mistake));
  }
  return std::nullopt;
}

}  // namespace reference
