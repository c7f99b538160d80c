#include "zlog/zlog.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kMaxLevel = 253;

/// What a format may contain beside text, and what a record has in place of each.
constexpr std::array<std::string_view, 11> kConversions = {
    "%d(%F %T)", "%ms", "%us", "%V", "%-9V", "%c", "%F", "%L", "%U", "%m", "%n"};
using Fields = std::array<std::string, kConversions.size()>;

/// Appends `format` with `fields` to `line`. False if another conversion is in it.
bool Render(std::string_view format, const Fields& fields, std::string* line) {
  while (!format.empty()) {
    const auto* const found =
        std::find_if(kConversions.begin(), kConversions.end(),
                     [format](auto known) { return format.substr(0, known.size()) == known; });
    if (found != kConversions.end()) {
      line->append(fields[static_cast<std::size_t>(found - kConversions.begin())]);
      format.remove_prefix(found->size());
    } else {
      if (format.front() == '%') return false;
      line->push_back(format.front());
      format.remove_prefix(1);
    }
  }
  return true;
}

struct Rule {
  int lowest_level;
  int fd;
  std::string format;
};

}  // namespace

struct zlog_category_s {
  std::string name;
  std::vector<Rule> rules;  ///< Complete before a caller has the category.
};

namespace {

/// A loaded configuration, and the categories that it names or that were requested since.
struct Log {
  Log() = default;
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;
  ~Log() {
    for (const auto& [name, category] : categories) {
      for (const Rule& rule : category.rules) {
        if (rule.fd != STDERR_FILENO) close(rule.fd);
      }
    }
  }

  std::map<int, std::string> levels = {{20, "DEBUG"}, {40, "INFO"},   {60, "NOTICE"},
                                       {80, "WARN"},  {100, "ERROR"}, {120, "FATAL"}};
  std::map<std::string, std::string> formats;
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

auto FindLevel(const Log& log, std::string_view name) {
  return std::find_if(log.levels.begin(), log.levels.end(),
                      [name](const auto& level) { return level.second == name; });
}

// Each reads an entry of its section; false if it has another form. The last conversion of each
// sscanf catches trailing text.

bool ReadGlobal(const char* line, Log* /*log*/) { return std::strcmp(line, "buffer max = 0") == 0; }

bool ReadLevel(const char* line, Log* log) {
  Word name;
  char number[4];
  char rest[2];
  if (std::sscanf(line, "%[A-Z0-9_] = %3[0-9]%1s", name, number, rest) != 2) return false;
  const int level = std::stoi(number);
  return level > 0 && level <= kMaxLevel && FindLevel(*log, name) == log->levels.end() &&
         log->levels.emplace(level, name).second;
}

bool ReadFormat(const char* line, Log* log) {
  Word name;
  Word format;
  char rest[2];
  std::string ignored;
  return std::sscanf(line, R"(%[A-Za-z0-9_] = "%[^"]%*1["]%1s)", name, format, rest) == 2 &&
         line[std::strlen(line) - 1] == '"' && Render(format, {}, &ignored) &&
         log->formats.emplace(name, format).second;
}

bool ReadRule(const char* line, Log* log) {
  Word category;
  Word level;
  Word output;
  Word format;
  char rest[2];
  // An output cannot contain these characters: zlog gives them a meaning in paths.
  if (std::sscanf(line, "%[A-Za-z0-9_].%[A-Z0-9_]%*[ \t]%[^%,;#];%*[ \t]%[A-Za-z0-9_]%1s", category,
                  level, output, format, rest) != 4) {
    return false;
  }
  const auto lowest_level = FindLevel(*log, level);
  if (lowest_level == log->levels.end() || log->formats.count(format) == 0) return false;
  std::string path = output;
  int fd = STDERR_FILENO;
  if (path != ">stderr") {
    if (path.size() < 3 || path.front() != '"' || path.back() != '"') return false;
    path = path.substr(1, path.size() - 2);
    fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
      throw std::runtime_error("cannot append to " + path + " (" + std::strerror(errno) +
                               "); name another file");
    }
  }
  log->categories[category].rules.push_back({lowest_level->first, fd, log->formats[format]});
  return true;
}

struct Section {
  std::string_view header;
  bool (*read)(const char* entry, Log* log);
};

// In file order.
constexpr Section kSections[] = {{"[global]", ReadGlobal},
                                 {"[levels]", ReadLevel},
                                 {"[formats]", ReadFormat},
                                 {"[rules]", ReadRule}};

constexpr char kRemedy[] =
    "write # text, a header of [global], [levels], [formats], [rules] in this order, or below it: "
    "buffer max = 0; NAME = NUMBER; name = \"format\"; category.LEVEL OUTPUT; format. Numbers are "
    "1 to 253, OUTPUT is >stderr or \"path\", formats have %d(%F %T) %ms %us %V %-9V %c %F %L %U "
    "%m "
    "%n, names are new or declared above";

/// `next` is the section that may follow.
bool ReadLine(const std::string& line, const Section** next, Log* log) {
  if (line.size() > kMaxLine) return false;
  if (line.empty() || line.front() == '#') return true;
  if (line.front() != '[') return *next != kSections && (*next)[-1].read(line.c_str(), log);
  *next = std::find_if(*next, std::end(kSections),
                       [&line](const Section& section) { return section.header == line; });
  return (*next)++ != std::end(kSections);
}

std::unique_ptr<Log> Load(const std::string& path) {
  auto log = std::make_unique<Log>();
  const Section* next = kSections;
  std::ifstream file(path);
  int number = 1;
  for (std::string line; std::getline(file, line); ++number) {
    if (ReadLine(line, &next, log.get())) continue;
    std::string error = path;
    error.append(":").append(std::to_string(number)).append(": \"").append(line).append("\": ");
    throw std::runtime_error(error + kRemedy);
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
  zlog_category_t& category = g_log->categories[cname];
  category.name = cname;
  return &category;
}

int zlog_level_enabled(zlog_category_t* category, const int level) {
  if (category == nullptr || level > kMaxLevel) return 0;
  for (const Rule& rule : category->rules) {
    if (level >= rule.lowest_level) return 1;
  }
  return 0;
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
  const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);

  const std::lock_guard lock(g_mutex);
  timeval now{};
  gettimeofday(&now, nullptr);
  std::tm local{};
  localtime_r(&now.tv_sec, &local);
  char date_text[32];
  const std::string date(date_text, std::strftime(date_text, sizeof date_text, "%F %T", &local));
  const std::string micros = std::to_string(1'000'000 + now.tv_usec).substr(1);
  const auto known = g_log->levels.find(level);
  const std::string name = known == g_log->levels.end() ? "UNKNOWN" : known->second;
  const Fields fields = {date,
                         micros.substr(0, 3),
                         micros,
                         name,
                         name + std::string(name.size() < 9 ? 9 - name.size() : 0, ' '),
                         category->name,
                         {file, filelen},
                         std::to_string(line),
                         {func, funclen},
                         {text, static_cast<std::size_t>(length)},
                         "\n"};
  for (const Rule& rule : category->rules) {
    if (level < rule.lowest_level) continue;
    std::string record;
    Render(rule.format, fields, &record);
    // What the output refuses is lost: there is nowhere to report it.
    if (write(rule.fd, record.data(), record.size()) < 0) continue;
  }
}
