#ifndef ZUSKUX_PLATFORM_DEST_MANAGER_TRACE_H_
#define ZUSKUX_PLATFORM_DEST_MANAGER_TRACE_H_

#include <zlog.h>

/// The log category of the destination manager and everything that it loads. Null until the host
/// program sets it, once, after `zlog_init` and before the first request.
extern __attribute__((visibility("default"))) zlog_category_t* g_trace;

#endif  // ZUSKUX_PLATFORM_DEST_MANAGER_TRACE_H_
