#ifndef ZUSKUX_TESTS_SUPPORT_FAKE_LOG_H_
#define ZUSKUX_TESTS_SUPPORT_FAKE_LOG_H_

#include <functional>
#include <string>
#include <vector>

namespace testing_support {

// A fake zlog: every record becomes an event, whatever its level, because the library itself must
// call `zlog_level_enabled` where necessary. A record for a category other than `g_trace` begins
// "log to another category".

/// Whether `zlog_level_enabled` reports level 10 as enabled; every other level is. Also makes
/// `g_trace` the expected category.
void SetTrace(bool on);

/// Replaces the answer of `zlog_level_enabled`; null restores that of `SetTrace`.
void SetLevelAnswer(std::function<int(int level)> answer);

/// Each record as the library passed it, unformatted: the format and the arguments, each preceded
/// by " <- ".
std::vector<std::string>& RawRecords();

/// The number of `zlog_level_enabled` calls since the last `SetTrace`.
int LevelQueries();

/// While set, called for every record instead of recording it; for sinks that throw.
void SetLogHook(std::function<void()> hook);

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FAKE_LOG_H_
