#ifndef ZUSKUX_REFERENCE_SITE_SITE_READER_H_
#define ZUSKUX_REFERENCE_SITE_SITE_READER_H_

#include <string>
#include <variant>
#include <vector>

#include "reference/site/site.h"

namespace reference {

/// One mistake in a site file: where it is, what is wrong and what to do about it.
struct SiteError {
  /// Counted from 1; 0 when the file as a whole is meant.
  int line = 0;
  int column = 0;
  std::string text;
};

/// "<file>:<line>:<column>: <text>", without the numbers that are 0.
std::string FormatSiteError(const std::string& file, const SiteError& error);

/// Reads the text of a site file. Either the site, or every mistake of the text in the order of
/// their places; a syntax error stops the reading and is then the only one.
std::variant<Site, std::vector<SiteError>> ParseSite(const std::string& text);

/// Reads a site file; a file that cannot be read is one error.
std::variant<Site, std::vector<SiteError>> ReadSiteFile(const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_SITE_READER_H_
