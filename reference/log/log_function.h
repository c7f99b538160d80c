#ifndef ZUSKUX_REFERENCE_LOG_LOG_FUNCTION_H_
#define ZUSKUX_REFERENCE_LOG_LOG_FUNCTION_H_

#include <functional>
#include <string>

namespace reference {

/// How much a line matters to the operator: kError asks for action, kWarning may, kInfo does not,
/// kDebug is for whoever looks for a mistake.
enum class LogLevel { kError, kWarning, kInfo, kDebug };

/// Where a part of a program logs. Called on any thread; may be empty.
using LogFunction = std::function<void(LogLevel level, const std::string& line)>;

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_LOG_LOG_FUNCTION_H_
