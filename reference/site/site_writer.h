#ifndef ZUSKUX_REFERENCE_SITE_SITE_WRITER_H_
#define ZUSKUX_REFERENCE_SITE_SITE_WRITER_H_

#include <string>

#include "reference/site/site.h"

namespace reference {

/// The text of a site file, which begins with its object_count, then one entry per line. `site`
/// must be one that a site file can describe: its ids refer to its own objects. Reading the text
/// gives an equal site.
std::string WriteSite(const Site& site);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_SITE_WRITER_H_
