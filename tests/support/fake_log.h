#ifndef ZUSKUX_TESTS_SUPPORT_FAKE_LOG_H_
#define ZUSKUX_TESTS_SUPPORT_FAKE_LOG_H_

#include <functional>
#include <string>
#include <vector>

namespace testing_support {

// Stands in for zlog at its functions: every record becomes an event, whatever its level, because
// the library is expected to ask `zlog_level_enabled` itself where it must. A record for another
// category than `g_trace` begins "log to another category".

/// Whether `zlog_level_enabled` says that level 10 is on; every other level is. Also makes
/// `g_trace` the category that is expected.
void SetTrace(bool on);

/// What `zlog_level_enabled` answers instead; null for what `SetTrace` says.
void SetLevelAnswer(std::function<int(int level)> answer);

/// Each record as the library gave it, unformatted: the format and the arguments, with " <- "
/// before each of them.
std::vector<std::string>& RawRecords();

/// How often `zlog_level_enabled` was asked since the last `SetTrace`.
int LevelQueries();

/// Called instead of recording, with every record, while it is set; for sinks that throw.
void SetLogHook(std::function<void()> hook);

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FAKE_LOG_H_
