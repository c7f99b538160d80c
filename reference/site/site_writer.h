#ifndef ZUSKUX_REFERENCE_SITE_SITE_WRITER_H_
#define ZUSKUX_REFERENCE_SITE_SITE_WRITER_H_

#include <string>

#include "reference/site/site.h"

namespace reference {

/// The text of a site file, an entry per line. `site` is one that a site file can describe: its ids
/// refer to objects of its own. Reading the text gives an equal site.
std::string WriteSite(const Site& site);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_SITE_WRITER_H_
