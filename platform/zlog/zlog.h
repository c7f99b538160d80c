#ifndef ZUSKUX_PLATFORM_ZLOG_ZLOG_H_
#define ZUSKUX_PLATFORM_ZLOG_ZLOG_H_

/// The functions of zlog 1.2 that zuskux and its hosts call, with the same names and signatures: a
/// program built against this header also runs with the real `libzlog.so.1.2`.
///
/// Every function may be called from any thread, but not from a signal handler.

// NOLINTBEGIN(modernize-*, readability-*): C, with zlog's own signatures.
#include <stddef.h>

#define ZLOG_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/// A named source of records. Owned by the library and valid until `zlog_fini`.
typedef struct zlog_category_s zlog_category_t;

/// Reads the configuration file `config` and opens the files that it names. Returns 0, or -1 after
/// printing one line on stderr that names the place and the remedy. A second call without
/// `zlog_fini` in between fails and changes nothing.
ZLOG_API int zlog_init(const char* config);

/// Closes the files and deletes every category; none may be in use.
ZLOG_API void zlog_fini(void);

/// The category `cname`, created on first use. Null before `zlog_init` and after `zlog_fini`.
ZLOG_API zlog_category_t* zlog_get_category(const char* cname);

/// Whether `zlog` would write a record of `level` (1 to 253, higher is more important): 1 or 0.
/// Takes no lock. 0 for a null category.
ZLOG_API int zlog_level_enabled(zlog_category_t* category, const int level);

/// Writes one record to each output that the configuration selects. `file` and `func` need no
/// terminating zero: their lengths are passed. What an output refuses (no space, a closed pipe) is
/// lost.
ZLOG_API void zlog(zlog_category_t* category, const char* file, size_t filelen, const char* func,
                   size_t funclen, long line, int level, const char* format, ...)
    __attribute__((format(printf, 8, 9)));

#ifdef __cplusplus
}
#endif

#undef ZLOG_API
// NOLINTEND(modernize-*, readability-*)

#endif  // ZUSKUX_PLATFORM_ZLOG_ZLOG_H_
