#ifndef ZUSKUX_REFERENCE_LOG_LOG_FUNCTION_H_
#define ZUSKUX_REFERENCE_LOG_LOG_FUNCTION_H_

#include <functional>
#include <string>

namespace reference {

/// How much a line matters to the operator: kError needs action, kWarning may need it, kInfo does
/// not, and kDebug is for debugging.
enum class LogLevel { kError, kWarning, kInfo, kDebug };

/// The log of a part of a program. Called on any thread; may be empty.
using LogFunction = std::function<void(LogLevel level, const std::string& line)>;

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_LOG_LOG_FUNCTION_H_
