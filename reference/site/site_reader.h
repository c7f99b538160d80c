#ifndef ZUSKUX_REFERENCE_SITE_SITE_READER_H_
#define ZUSKUX_REFERENCE_SITE_SITE_READER_H_

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

#include "reference/site/site.h"
#include "reference/text/diagnostics.h"

namespace reference {

/// A site, or the mistakes and warnings of its file in file order.
using SiteOrMistakes = std::variant<Site, std::vector<Diagnostic>>;

/// Parses the text of a site file. Syntax errors hide all other mistakes.
SiteOrMistakes ParseSite(const std::string& text);

/// Reads a site file. An unreadable file is a single mistake.
SiteOrMistakes ReadSiteFile(const std::string& path);

/// The findings in a site file.
struct SiteFindings {
  /// In file order.
  std::vector<Diagnostic> diagnostics;
  /// Of the site; 0 if the file has mistakes.
  std::size_t objects = 0;
};

/// Reads a site file for its mistakes and warnings.
SiteFindings CheckSiteFile(const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_SITE_READER_H_
