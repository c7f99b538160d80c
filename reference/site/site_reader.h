#ifndef ZUSKUX_REFERENCE_SITE_SITE_READER_H_
#define ZUSKUX_REFERENCE_SITE_SITE_READER_H_

#include <string>
#include <variant>
#include <vector>

#include "reference/site/site.h"
#include "reference/text/diagnostics.h"

namespace reference {

/// A site, or the mistakes of its file in file order.
using SiteOrMistakes = std::variant<Site, std::vector<Diagnostic>>;

/// Parses the text of a site file. Stops at a syntax error.
SiteOrMistakes ParseSite(const std::string& text);

/// Reads a site file. An unreadable file is a single mistake.
SiteOrMistakes ReadSiteFile(const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_SITE_READER_H_
