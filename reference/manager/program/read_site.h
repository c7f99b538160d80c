#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_READ_SITE_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_READ_SITE_H_

#include <optional>
#include <string>

#include "reference/site/site.h"

namespace reference {

/// Reads the site of a file, with progress on a terminal. If the file has mistakes, writes all of
/// them to standard error and returns nothing.
std::optional<Site> ReadSiteOrLogMistakes(const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_READ_SITE_H_
