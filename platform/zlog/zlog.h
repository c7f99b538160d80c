#ifndef ZUSKUX_PLATFORM_ZLOG_ZLOG_H_
#define ZUSKUX_PLATFORM_ZLOG_ZLOG_H_

/// The part of zlog 1.2's C interface that this system uses, with the same names and signatures, so
/// that a program built with this header also runs with the system's `libzlog.so.1.2`.
///
/// Every function may be called from any thread, but not from a signal handler.

// NOLINTBEGIN(modernize-*, google-runtime-int, readability-*): C, with zlog's own signatures.
#include <stdarg.h>
#include <stddef.h>

#define ZLOG_API __attribute__((visibility("default")))
#define ZLOG_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))

#ifdef __cplusplus
extern "C" {
#endif

/// The levels that need no declaration in a configuration. A level is any integer from 1 to 253;
/// higher is more important.
typedef enum {
  ZLOG_LEVEL_DEBUG = 20,
  ZLOG_LEVEL_INFO = 40,
  ZLOG_LEVEL_NOTICE = 60,
  ZLOG_LEVEL_WARN = 80,
  ZLOG_LEVEL_ERROR = 100,
  ZLOG_LEVEL_FATAL = 120
} zlog_level;

/// A named source of records. Owned by the library and valid until the process ends: after
/// `zlog_fini` it writes nothing, after the next `zlog_init` it writes again.
typedef struct zlog_category_s zlog_category_t;

/// Reads the configuration `confpath` (null: the file that the environment variable ZLOG_CONF_PATH
/// names) and opens its files. Returns 0, or -1 after one line on stderr that names the place and
/// the remedy; then nothing has changed. A second call without `zlog_fini` in between is an error.
ZLOG_API int zlog_init(const char* confpath);

/// Replaces the configuration with `confpath` (null: the path of the last successful `zlog_init` or
/// `zlog_reload`) and opens every file anew. Returns 0, or -1 after one line on stderr; then the
/// old configuration stays.
ZLOG_API int zlog_reload(const char* confpath);

/// Closes the files and forgets the configuration. May be called at any time.
ZLOG_API void zlog_fini(void);

/// The category `cname`, created at the first call. Null before `zlog_init`, after `zlog_fini` and
/// for a null name.
ZLOG_API zlog_category_t* zlog_get_category(const char* cname);

/// 1 where `zlog` with these arguments would write, otherwise 0: for a level that no rule of the
/// category lets through, a level outside 1..253, a null category, and while no configuration is
/// loaded. Reads one atomic flag and takes no lock; a call that overlaps `zlog_reload` gives the
/// answer of the old or of the new configuration.
ZLOG_API int zlog_level_enabled(zlog_category_t* category, const int level);

/// Writes one record to the output of every rule that lets it through, each in one piece and at
/// once; writes nothing where `zlog_level_enabled` is 0. Text of any length is written whole, line
/// breaks in it as they are. What an output refuses (no space, a closed pipe) is lost.
///
/// `file` and `func` need no terminating zero: their lengths are given. A `format` that printf
/// refuses is itself written as the text. `errno` is left as it was.
ZLOG_API void zlog(zlog_category_t* category, const char* file, size_t filelen, const char* func,
                   size_t funclen, long line, int level, const char* format, ...) ZLOG_PRINTF(8, 9);

/// As `zlog`, with the arguments in `args`, which is left as it was.
ZLOG_API void vzlog(zlog_category_t* category, const char* file, size_t filelen, const char* func,
                    size_t funclen, long line, int level, const char* format, va_list args)
    ZLOG_PRINTF(8, 0);

#ifdef __cplusplus
}
#endif

#undef ZLOG_API
#undef ZLOG_PRINTF
// NOLINTEND(modernize-*, google-runtime-int, readability-*)

#endif  // ZUSKUX_PLATFORM_ZLOG_ZLOG_H_
