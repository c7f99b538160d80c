#include "reference/manager/program/standard_error.h"

namespace reference {

LogSink& StandardError() {
  static LogSink sink("zuskux-manager");
  return sink;
}

void LogLine(LogLevel level, const std::string& text) { StandardError().Write(level, text); }

}  // namespace reference
