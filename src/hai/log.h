#ifndef ZUSKUX_HAI_LOG_H_
#define ZUSKUX_HAI_LOG_H_

#include <zlog.h>

#include <string_view>

#include "dest_manager/trace.h"

namespace dest_mng {

inline constexpr int kTraceLevel = 10;
inline constexpr int kErrorLevel = 12;

/// Where a log line says it comes from. The places are part of the log format that operators filter
/// on, so they are data and do not follow the source.
struct LogSite {
  std::string_view file;
  std::string_view function;
  long line;
  int level;
};

/// Whether lines of the trace level are wanted. Ask before rendering what only a trace shows.
inline bool TraceEnabled() { return zlog_level_enabled(g_trace, kTraceLevel) != 0; }

/// Writes one line to the destination manager's log category, whether or not its level is wanted.
__attribute__((format(printf, 2, 3))) void Log(const LogSite& site, const char* format, ...);

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_LOG_H_
