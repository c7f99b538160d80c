#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_CHECK_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_CHECK_H_

#include <ostream>
#include <string>
#include <vector>

#include "reference/site/site_reader.h"

namespace reference {

/// A site file and what was found in it.
struct CheckedFile {
  std::string path;
  SiteFindings findings;
};

/// Whether any file has a mistake. Warnings do not count.
bool HasErrors(const std::vector<CheckedFile>& files);

/// "2 errors and 1 warning in 3 files; nothing was programmed". Empty without errors and warnings.
std::string CheckSummary(const std::vector<CheckedFile>& files);

/// Writes a line with the number of objects of a file without mistakes.
void WriteChecked(const CheckedFile& file, std::ostream* out);

/// Writes an object with "files", "diagnostics" and "summary". Lines and columns count from 1; 0
/// means the whole file.
void WriteCheckAsJson(const std::vector<CheckedFile>& files, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_CHECK_H_
