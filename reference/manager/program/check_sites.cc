#include "reference/manager/program/check_sites.h"

#include "reference/manager/program/read_site.h"
#include "reference/manager/program/standard_error.h"
#include "reference/manager/views/check.h"
#include "reference/manager/views/progress.h"
#include "reference/site/site_reader.h"

namespace reference {

bool CheckSites(const std::vector<std::string>& paths, bool json, std::ostream* out) {
  std::vector<CheckedFile> files;
  for (const std::string& path : paths) {
    const Progress progress("reading " + path, &StandardError());
    files.push_back({path, CheckSiteFile(path)});
  }
  const bool usable = !HasErrors(files);
  if (json) {
    WriteCheckAsJson(files, out);
    return usable;
  }
  for (const CheckedFile& file : files) {
    LogDiagnostics(file.path, file.findings.diagnostics);
    if (!HasErrors({file})) WriteChecked(file, out);
  }
  const std::string summary = CheckSummary(files);
  if (!summary.empty()) LogLine(usable ? LogLevel::kWarning : LogLevel::kError, summary);
  return usable;
}

}  // namespace reference
