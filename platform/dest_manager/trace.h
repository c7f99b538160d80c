#ifndef ZUSKUX_PLATFORM_DEST_MANAGER_TRACE_H_
#define ZUSKUX_PLATFORM_DEST_MANAGER_TRACE_H_

#include <zlog.h>

/// The log category of the destination manager and of everything that it loads. The host program
/// sets it once, after `zlog_init` and before the first request; null until then.
extern __attribute__((visibility("default"))) zlog_category_t* g_trace;

#endif  // ZUSKUX_PLATFORM_DEST_MANAGER_TRACE_H_
