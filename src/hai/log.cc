#include "hai/log.h"

#include <cstdarg>

namespace dest_mng {

void Log(const LogSite& site, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vzlog(g_trace, site.file.data(), site.file.size(), site.function.data(), site.function.size(),
        site.line, site.level, format, arguments);
  va_end(arguments);
}

}  // namespace dest_mng
