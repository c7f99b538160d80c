#include "zlog/zlog.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zlog/log_config.h"

using zlog_standin::Config;
using zlog_standin::kMaxLevel;
using zlog_standin::kMinLevel;
using zlog_standin::LevelSet;
using zlog_standin::Record;
using zlog_standin::Rule;

struct zlog_category_s {
  /// Read without the lock; `enabled[level]` is true where one of `rules` lets the level through.
  std::array<std::atomic<bool>, LevelSet().size()> enabled{};
  /// Guarded by the registry's lock, as is what they point at.
  std::vector<const Rule*> rules;
  std::string_view name;
};

namespace zlog_standin {
namespace {

/// The configuration in force and every category ever asked for. One lock guards it all and is held
/// while a record is written, so records neither interleave nor outlive their configuration, and
/// stand in each file in the order of their times.
class Registry {
 public:
  /// Never destroyed: other threads may still log while the process exits.
  static Registry& Global() {
    static auto* const registry = new Registry;
    return *registry;
  }

  bool Init(const char* path);
  bool Reload(const char* path);
  void Finish();
  zlog_category_t* Category(const char* name);

  /// Writes `record` after setting its time, category and the name of its level.
  void Write(const zlog_category_t& category, std::size_t level, Record record);

 private:
  bool Load(const std::string& path);
  void ApplyRules(zlog_category_t* category) const;

  std::mutex mutex_;
  std::string path_;
  std::unique_ptr<const Config> config_;  ///< Null before `Init` and after `Finish`.
  std::map<std::string, zlog_category_t, std::less<>> categories_;
};

bool Fail(const std::string& what) {
  std::cerr << "zlog: " + what + '\n';
  return false;
}

bool Registry::Init(const char* path) {
  const std::lock_guard lock(mutex_);
  if (config_ != nullptr) {
    return Fail("zlog_init was already called; use zlog_reload, or call zlog_fini first");
  }
  if (path == nullptr) path = std::getenv("ZLOG_CONF_PATH");
  if (path == nullptr) {
    return Fail("no configuration; give zlog_init a path or set ZLOG_CONF_PATH");
  }
  return Load(path);
}

bool Registry::Reload(const char* path) {
  const std::lock_guard lock(mutex_);
  if (config_ == nullptr) return Fail("nothing to reload; call zlog_init first");
  return Load(path == nullptr ? path_ : path);
}

bool Registry::Load(const std::string& path) {
  std::string error;
  auto config = LoadConfig(path, &error);
  if (config == nullptr) return Fail(error);
  path_ = path;
  // The old configuration goes only after the categories no longer point at its rules.
  config_.swap(config);
  for (auto& [name, category] : categories_) ApplyRules(&category);
  return true;
}

void Registry::Finish() {
  const std::lock_guard lock(mutex_);
  config_.reset();
  for (auto& [name, category] : categories_) ApplyRules(&category);
}

zlog_category_t* Registry::Category(const char* name) {
  const std::lock_guard lock(mutex_);
  if (config_ == nullptr || name == nullptr) return nullptr;
  const auto [entry, created] = categories_.try_emplace(name);
  if (created) {
    entry->second.name = entry->first;
    ApplyRules(&entry->second);
  }
  return &entry->second;
}

void Registry::ApplyRules(zlog_category_t* category) const {
  category->rules.clear();
  LevelSet enabled;
  if (config_ != nullptr) {
    for (const Rule& rule : config_->rules) {
      if (!rule.Matches(category->name)) continue;
      category->rules.push_back(&rule);
      enabled |= rule.levels;
    }
  }
  for (std::size_t level = 0; level < enabled.size(); ++level) {
    category->enabled[level].store(enabled[level], std::memory_order_relaxed);
  }
}

void Registry::Write(const zlog_category_t& category, std::size_t level, Record record) {
  const std::lock_guard lock(mutex_);
  if (config_ == nullptr) return;
  clock_gettime(CLOCK_REALTIME, &record.time);
  record.category = category.name;
  record.level = config_->level_names[level];
  if (record.level.empty()) record.level = "UNKNOWN";
  std::string line;
  for (const Rule* rule : category.rules) {
    if (!rule->levels[level]) continue;
    line.clear();
    rule->format.Render(record, &line);
    rule->output.Write(line);
  }
}

/// What printf makes of `format` and `args`, which stay as they are; `format` where it refuses.
__attribute__((format(printf, 1, 0))) std::string Text(const char* format, va_list args) {
  std::string text(500, '\0');
  for (;;) {
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(text.data(), text.size() + 1, format, copy);
    va_end(copy);
    if (length < 0) return format;
    const auto size = static_cast<std::size_t>(length);
    const bool complete = size <= text.size();
    text.resize(size);
    if (complete) return text;
  }
}

}  // namespace
}  // namespace zlog_standin

using zlog_standin::Registry;

int zlog_init(const char* confpath) { return Registry::Global().Init(confpath) ? 0 : -1; }

int zlog_reload(const char* confpath) { return Registry::Global().Reload(confpath) ? 0 : -1; }

void zlog_fini(void) { Registry::Global().Finish(); }

zlog_category_t* zlog_get_category(const char* cname) { return Registry::Global().Category(cname); }

int zlog_level_enabled(zlog_category_t* category, const int level) {
  if (category == nullptr || level < kMinLevel || level > kMaxLevel) return 0;
  return category->enabled[static_cast<std::size_t>(level)].load(std::memory_order_relaxed) ? 1 : 0;
}

// NOLINTBEGIN(google-runtime-int): zlog's own signatures.
void vzlog(zlog_category_t* category, const char* file, size_t filelen, const char* func,
           size_t funclen, long line, int level, const char* format, va_list args) {
  if (zlog_level_enabled(category, level) == 0) return;
  const int caller_errno = errno;
  const std::string text = zlog_standin::Text(format, args);
  Record record{};
  record.file = {file, filelen};
  record.function = {func, funclen};
  record.line = line;
  record.text = text;
  Registry::Global().Write(*category, static_cast<std::size_t>(level), record);
  errno = caller_errno;
}

void zlog(zlog_category_t* category, const char* file, size_t filelen, const char* func,
          size_t funclen, long line, int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  vzlog(category, file, filelen, func, funclen, line, level, format, args);
  va_end(args);
}
// NOLINTEND(google-runtime-int)
