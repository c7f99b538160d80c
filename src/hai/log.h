#ifndef ZUSKUX_HAI_LOG_H_
#define ZUSKUX_HAI_LOG_H_

#include <zlog.h>

#include <string_view>

#include "dest_manager/trace.h"

namespace dest_mng {

inline constexpr int kTraceLevel = 10;
inline constexpr int kErrorLevel = 12;

/// The place that a log line claims to come from. Operators filter on it, so it is data, part of
/// the log format, and does not follow the source.
struct LogSite {
  std::string_view file;
  std::string_view function;
  long line;
  int level;
};

/// Whether the trace level is enabled.
inline bool TraceEnabled() { return zlog_level_enabled(g_trace, kTraceLevel) != 0; }

}  // namespace dest_mng

/// Writes one line to the destination manager's log category, whether or not its level is enabled:
/// ZUSKUX_LOG(site, format, arguments...). A macro, so that zlog gets the caller's format and
/// arguments themselves and the compiler checks one against the other.
#define ZUSKUX_LOG(site, ...)                                                   \
  zlog(g_trace, (site).file.data(), (site).file.size(), (site).function.data(), \
       (site).function.size(), (site).line, (site).level, __VA_ARGS__)

/// Likewise, but only if the trace level is enabled; otherwise does not evaluate the arguments.
/// The call is out of line, because its many arguments would lengthen the untraced path.
#define ZUSKUX_TRACE(site, ...)                                                \
  do {                                                                         \
    if (::dest_mng::TraceEnabled()) {                                          \
      [&]() __attribute__((noinline, cold)) { ZUSKUX_LOG(site, __VA_ARGS__); } \
      ();                                                                      \
    }                                                                          \
  } while (false)

#endif  // ZUSKUX_HAI_LOG_H_
