#include "tests/support/fake_log.h"

#include <zlog.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

#include "dest_manager/trace.h"
#include "tests/support/events.h"

// The category is only compared, never dereferenced.
struct zlog_category_s {};

namespace {

zlog_category_t category;
bool trace_on = true;
int level_queries = 0;
std::function<void()> log_hook;
std::function<int(int)> level_answer;

std::string Format(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  std::string text(static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, again)), '\0');
  va_end(again);
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

// The format and its arguments: texts and numbers, the only ones that the library logs.
std::string Raw(const char* format, va_list arguments) {
  std::string text = format;
  for (const char* at = format; *at != '\0'; ++at) {
    if (*at != '%' || *++at == '%') continue;
    switch (*at) {
      case 's':
        text += std::string(" <- ") + va_arg(arguments, const char*);
        break;
      case 'u':
        text += " <- " + std::to_string(va_arg(arguments, unsigned int));
        break;
      case 'd':
        text += " <- " + std::to_string(va_arg(arguments, int));
        break;
      default:
        return text + " <- unexpected conversion %" + *at;
    }
  }
  return text;
}

}  // namespace

namespace testing_support {

void SetTrace(bool on) {
  g_trace = &category;
  trace_on = on;
  level_queries = 0;
}

int LevelQueries() { return level_queries; }

void SetLevelAnswer(std::function<int(int)> answer) { level_answer = std::move(answer); }

std::vector<std::string>& RawRecords() {
  static std::vector<std::string> records;
  return records;
}

void SetLogHook(std::function<void()> hook) { log_hook = std::move(hook); }

}  // namespace testing_support

int zlog_level_enabled(zlog_category_t* asked, const int level) {
  ++level_queries;
  if (level_answer) return level_answer(level);
  return asked == g_trace && (level != 10 || trace_on) ? 1 : 0;
}

void zlog(zlog_category_t* given, const char* file, size_t filelen, const char* func,
          size_t funclen, long line, int level, const char* format, ...) {
  if (log_hook) return log_hook();
  va_list arguments;
  va_start(arguments, format);
  testing_support::RawRecords().push_back(Raw(format, arguments));
  va_end(arguments);
  va_start(arguments, format);
  const std::string text = Format(format, arguments);
  va_end(arguments);
  testing_support::AddEvent((given == g_trace ? "log " : "log to another category ") +
                            std::to_string(level) + " " + std::string(file, filelen) + " " +
                            std::string(func, funclen) + ":" + std::to_string(line) + " " + text);
}
