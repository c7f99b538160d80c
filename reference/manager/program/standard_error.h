#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_STANDARD_ERROR_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_STANDARD_ERROR_H_

#include <string>

#include "reference/log/log_sink.h"

namespace reference {

/// The program's standard error.
LogSink& StandardError();

/// Writes a line to it.
void LogLine(LogLevel level, const std::string& text);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_STANDARD_ERROR_H_
