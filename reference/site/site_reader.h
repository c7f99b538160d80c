#ifndef ZUSKUX_REFERENCE_SITE_SITE_READER_H_
#define ZUSKUX_REFERENCE_SITE_SITE_READER_H_

#include <string>
#include <variant>
#include <vector>

#include "reference/site/site.h"
#include "reference/text/diagnostics.h"

namespace reference {

/// A site, or the mistakes of its file in the order of their places.
using SiteOrMistakes = std::variant<Site, std::vector<Diagnostic>>;

/// Reads the text of a site file. A syntax error ends the reading.
SiteOrMistakes ParseSite(const std::string& text);

/// Reads a site file. A file that cannot be read is one mistake.
SiteOrMistakes ReadSiteFile(const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_SITE_READER_H_
