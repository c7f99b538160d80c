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

}  // namespace dest_mng

/// Writes one line to the destination manager's log category, whether or not its level is wanted:
/// ZUSKUX_LOG(site, format, arguments...). A macro so that zlog gets the caller's format and
/// arguments themselves, and the compiler checks the one against the other.
#define ZUSKUX_LOG(site, ...)                                                   \
  zlog(g_trace, (site).file.data(), (site).file.size(), (site).function.data(), \
       (site).function.size(), (site).line, (site).level, __VA_ARGS__)

#endif  // ZUSKUX_HAI_LOG_H_
