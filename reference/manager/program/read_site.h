#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_READ_SITE_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_READ_SITE_H_

#include <optional>
#include <string>
#include <vector>

#include "reference/site/site.h"
#include "reference/text/diagnostics.h"

namespace reference {

/// Writes the mistakes and warnings of a file to standard error.
void LogDiagnostics(const std::string& path, const std::vector<Diagnostic>& diagnostics);

/// Reads the site of a file, with progress on a terminal. If the file has mistakes, writes all of
/// them to standard error, then how many there are, and returns nothing.
std::optional<Site> ReadSiteOrLogMistakes(const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_READ_SITE_H_
