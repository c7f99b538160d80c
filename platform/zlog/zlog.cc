#include "zlog/zlog.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kMaxLevel = 253;

struct Record {
  timeval time;
  std::string level;
  std::string category;
  std::string file;
  std::string function;
  long line;
  std::string text;
};

std::string LocalTime(const Record& record) {
  std::tm local{};
  localtime_r(&record.time.tv_sec, &local);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%F %T", &local)};
}

struct Conversion {
  std::string_view name;
  std::string (*render)(const Record& record);
};

constexpr Conversion kConversions[] = {
    {"d(%F %T)", LocalTime},
    {"ms",
     [](const Record& r) { return std::to_string(1'000 + r.time.tv_usec / 1'000).substr(1); }},
    {"us", [](const Record& r) { return std::to_string(1'000'000 + r.time.tv_usec).substr(1); }},
    {"V", [](const Record& r) { return r.level; }},
    {"c", [](const Record& r) { return r.category; }},
    {"F", [](const Record& r) { return r.file; }},
    {"L", [](const Record& r) { return std::to_string(r.line); }},
    {"U", [](const Record& r) { return r.function; }},
    {"m", [](const Record& r) { return r.text; }},
    {"n", [](const Record&) { return std::string("\n"); }},
};

/// Appends `record`, formatted by `pattern`, to `line`. False if the pattern has an unsupported
/// conversion.
bool Render(const char* pattern, const Record& record, std::string* line) {
  while (*pattern != '\0') {
    if (*pattern != '%') {
      line->push_back(*pattern++);
      continue;
    }
    char width[4] = "0";
    int length = 1;
    static_cast<void>(std::sscanf(pattern, "%%-%3[0-9]%n", width, &length));
    pattern += length;
    const auto* const conversion = std::find_if(
        std::begin(kConversions), std::end(kConversions), [pattern](const Conversion& known) {
          return std::strncmp(pattern, known.name.data(), known.name.size()) == 0;
        });
    if (conversion == std::end(kConversions)) return false;
    std::string text = conversion->render(record);
    text.resize(std::max<std::size_t>(text.size(), std::stoul(width)), ' ');
    line->append(text);
    pattern += conversion->name.size();
  }
  return true;
}

struct Rule {
  std::string category;
  int lowest_level;
  int fd;
  std::string pattern;
};

}  // namespace

struct zlog_category_s {
  std::string name;
  std::vector<const Rule*> rules;
  int lowest_level = kMaxLevel + 1;
};

namespace {

/// A loaded configuration and the categories requested since.
struct Log {
  Log() = default;
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;
  ~Log() {
    for (const Rule& rule : rules) {
      if (rule.fd != STDERR_FILENO) close(rule.fd);
    }
  }

  std::map<std::string, int> levels = {{"DEBUG", 20}, {"INFO", 40},   {"NOTICE", 60},
                                       {"WARN", 80},  {"ERROR", 100}, {"FATAL", 120}};
  std::map<std::string, std::string> patterns;  ///< By the name of the format.
  std::vector<Rule> rules;
  std::map<std::string, zlog_category_s> categories;
};

/// Held while a record is written, so that records do not interleave.
std::mutex g_mutex;

/// Guarded by `g_mutex`; null before `zlog_init` and after `zlog_fini`. Never destroyed: threads
/// may log during process exit.
std::unique_ptr<Log>& g_log = *new std::unique_ptr<Log>;

/// The longest line accepted. zlog itself splits much longer ones, even comments.
constexpr std::size_t kMaxLine = 1000;
using Word = char[kMaxLine + 1];

// Each reads a line of its section; false if it has another form. The last conversion of each
// format catches trailing text.

bool ReadGlobal(const char* line, Log* /*log*/) { return std::strcmp(line, "buffer max = 0") == 0; }

bool ReadLevel(const char* line, Log* log) {
  Word name;
  char number[4];
  char rest[2];
  if (std::sscanf(line, "%[A-Z0-9_] = %3[0-9]%1s", name, number, rest) != 2) return false;
  const int level = std::stoi(number);
  const auto has_number = [level](const auto& known) { return known.second == level; };
  return level > 0 && level <= kMaxLevel &&
         std::none_of(log->levels.begin(), log->levels.end(), has_number) &&
         log->levels.emplace(name, level).second;
}

bool ReadFormat(const char* line, Log* log) {
  Word name;
  Word pattern;
  char rest[2];
  std::string ignored;
  return std::sscanf(line, R"(%[A-Za-z0-9_] = "%[^"]%*1["]%1s)", name, pattern, rest) == 2 &&
         line[std::strlen(line) - 1] == '"' && Render(pattern, {}, &ignored) &&
         log->patterns.emplace(name, pattern).second;
}

bool ReadRule(const char* line, Log* log) {
  Word category;
  Word level;
  Word output;
  Word format;
  char rest[2];
  // An output cannot contain these characters: zlog gives them a meaning in paths.
  if (std::sscanf(line, "%[A-Za-z0-9_].%[A-Z0-9_]%*[ \t]%[^%,;#];%*[ \t]%[A-Za-z0-9_]%1s", category,
                  level, output, format, rest) != 4 ||
      log->levels.count(level) == 0 || log->patterns.count(format) == 0) {
    return false;
  }
  std::string path = output;
  int fd = STDERR_FILENO;
  if (path != ">stderr") {
    if (path.size() < 3 || path.front() != '"' || path.back() != '"') return false;
    path = path.substr(1, path.size() - 2);
    fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
      throw std::runtime_error(std::string("cannot open the file (") + std::strerror(errno) +
                               "); name one that may be appended to");
    }
  }
  log->rules.push_back({category, log->levels[level], fd, log->patterns[format]});
  return true;
}

struct Section {
  std::string_view header;
  bool (*read)(const char* line, Log* log);
  const char* form;
};

// In file order.
constexpr Section kSections[] = {
    {"", [](const char*, Log*) { return false; }, "[rules] or another section above"},
    {"[global]", ReadGlobal, "buffer max = 0"},
    {"[levels]", ReadLevel, "NAME = NUMBER, both new, the number from 1 to 253"},
    {"[formats]", ReadFormat,
     "name = \"pattern\", the name new, the pattern of text and %d(%F %T) %ms %us %V %c %F %L %U "
     "%m "
     "%n, padded as in %-9V"},
    {"[rules]", ReadRule,
     "category.LEVEL OUTPUT; format, where OUTPUT is >stderr or \"path\", and level and format are "
     "declared above"},
};

void ReadLine(const std::string& line, const Section** section, Log* log) {
  if (line.size() > kMaxLine) throw std::runtime_error("write at most 1000 characters");
  const auto begin = line.find_first_not_of(" \t\r");
  if (begin == std::string::npos || line[begin] == '#') return;
  const std::string entry = line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
  if (entry.front() == '[') {
    *section = std::find_if(*section + 1, std::end(kSections),
                            [&entry](const Section& next) { return next.header == entry; });
    if (*section != std::end(kSections)) return;
    throw std::runtime_error("write [global], [levels], [formats], [rules], in this order");
  }
  if ((*section)->read(entry.c_str(), log)) return;
  throw std::runtime_error(std::string("write ") + (*section)->form);
}

std::unique_ptr<Log> Load(const std::string& path) {
  auto log = std::make_unique<Log>();
  const Section* section = kSections;
  std::ifstream file(path);
  int number = 1;
  for (std::string line; std::getline(file, line); ++number) {
    try {
      ReadLine(line, &section, log.get());
    } catch (const std::runtime_error& error) {
      std::ostringstream message;
      message << path << ':' << number << ": \"" << line << "\": " << error.what();
      throw std::runtime_error(message.str());
    }
  }
  if (!file.eof()) throw std::runtime_error(path + ": cannot be read; name a readable file");
  return log;
}

}  // namespace

int zlog_init(const char* config) {
  const std::lock_guard lock(g_mutex);
  try {
    if (g_log != nullptr) throw std::runtime_error("already initialised; call zlog_fini first");
    g_log = Load(config);
    return 0;
  } catch (const std::runtime_error& error) {
    static_cast<void>(std::fprintf(stderr, "zlog: %s\n", error.what()));
    return -1;
  }
}

void zlog_fini() {
  const std::lock_guard lock(g_mutex);
  g_log.reset();
}

zlog_category_t* zlog_get_category(const char* cname) {
  const std::lock_guard lock(g_mutex);
  if (g_log == nullptr) return nullptr;
  const auto [entry, created] = g_log->categories.try_emplace(cname);
  zlog_category_t* const category = &entry->second;
  if (!created) return category;
  category->name = cname;
  for (const Rule& rule : g_log->rules) {
    if (rule.category != cname) continue;
    category->rules.push_back(&rule);
    category->lowest_level = std::min(category->lowest_level, rule.lowest_level);
  }
  return category;
}

int zlog_level_enabled(zlog_category_t* category, const int level) {
  return category != nullptr && level >= category->lowest_level && level <= kMaxLevel ? 1 : 0;
}

void zlog(zlog_category_t* category, const char* file, size_t filelen, const char* func,
          size_t funclen, long line, int level, const char* format, ...) {
  if (zlog_level_enabled(category, level) == 0) return;
  va_list args;
  va_start(args, format);
  char* text = nullptr;
  const int length = vasprintf(&text, format, args);
  va_end(args);
  if (length < 0) return;
  Record record{{},
                "UNKNOWN",
                category->name,
                {file, filelen},
                {func, funclen},
                line,
                {text, static_cast<std::size_t>(length)}};
  std::free(text);

  const std::lock_guard lock(g_mutex);
  gettimeofday(&record.time, nullptr);
  for (const auto& [name, number] : g_log->levels) {
    if (number == level) record.level = name;
  }
  for (const Rule* const rule : category->rules) {
    if (level < rule->lowest_level) continue;
    std::string entry;
    Render(rule->pattern.c_str(), record, &entry);
    // What the output refuses is lost: there is nowhere to report it.
    if (write(rule->fd, entry.data(), entry.size()) < 0) continue;
  }
}
