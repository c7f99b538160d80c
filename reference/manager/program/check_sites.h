#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_CHECK_SITES_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_CHECK_SITES_H_

#include <ostream>
#include <string>
#include <vector>

namespace reference {

/// Checks site files. Writes the mistakes and warnings to standard error, and the files without
/// mistakes to `out`; with `json`, everything to `out`. Returns whether no file has a mistake.
bool CheckSites(const std::vector<std::string>& paths, bool json, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_CHECK_SITES_H_
