#include "zlog/log_config.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <utility>

#include "zlog/zlog.h"

namespace zlog_standin {
namespace {

/// Keeps the depth of the regular expressions' recursion small.
constexpr std::size_t kMaxLineLength = 4096;

std::string Trimmed(const std::string& line) {
  constexpr const char* kBlanks = " \t\r";
  const auto begin = line.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return {};
  return line.substr(begin, line.find_last_not_of(kBlanks) - begin + 1);
}

std::string UpperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  return text;
}

std::string Quoted(const std::string& text) { return '"' + text + '"'; }

/// The levels that `=level` or `!level` stand for, or, without an operator, `level` and those
/// above.
LevelSet LevelsOf(const std::string& op, std::size_t level) {
  if (op == "=") return LevelSet().set(level);
  if (op == "!") return LevelSet().set().reset(level);
  return LevelSet().set() >> level << level;
}

/// Reads one configuration file. Every parsing step returns false after `Fail`.
class ConfigParser {
 public:
  ConfigParser(const std::string& path, std::string* error) : path_(path), error_(error) {}

  std::unique_ptr<const Config> Parse();

 private:
  struct Section {
    std::string_view header;
    const char* form;  ///< What `parse` is given the groups of.
    const char* hint;
    bool (ConfigParser::*parse)(const std::smatch& line);
  };

  /// A rule whose output is not open yet.
  struct PendingRule {
    int line_number;
    std::string category;
    LevelSet levels;
    RecordFormat format;
    std::string target;
  };

  static const Section kSections[];

  bool ParseLine(const std::string& line);
  bool ParseSection(const std::string& line);
  bool ParseGlobal(const std::smatch& line);
  bool ParseLevel(const std::smatch& line);
  bool ParseFormat(const std::smatch& line);
  bool ParseRule(const std::smatch& line);
  bool AddFormat(const std::string& name, const std::string& pattern);
  bool Open(PendingRule* rule);
  bool Fail(const std::string& what);

  const std::string& path_;
  std::string* const error_;
  int line_number_ = 0;
  const Section* section_ = nullptr;
  mode_t file_mode_ = 0600;
  std::map<std::string, RecordFormat> formats_;  ///< "" is the default format.
  std::vector<PendingRule> pending_rules_;
  std::unique_ptr<Config> config_ = std::make_unique<Config>();
};

// In the order in which a file must have them.
const ConfigParser::Section ConfigParser::kSections[] = {
    {"[global]",
     R"re(strict init\s*=\s*true|default format\s*=\s*"([^"]+)"|file perms\s*=\s*([0-7]{3})|)re"
     R"re((?:buffer min|buffer max|rotate lock file|fsync period|reload conf period)\s*=.+)re",
     "strict init = true, default format = \"%m%n\", file perms = 640, or a value for buffer min, "
     "buffer max, rotate lock file, fsync period or reload conf period",
     &ConfigParser::ParseGlobal},
    {"[levels]",
     R"re((\w+)\s*=\s*(\d{1,9}))re"
     R"re((?:\s*,\s*LOG_(?:EMERG|ALERT|CRIT|ERR|WARNING|NOTICE|INFO|DEBUG))?)re",
     "TRACE = 10, or with its syslog level: TRACE = 10, LOG_DEBUG", &ConfigParser::ParseLevel},
    {"[formats]", R"re((\w+)\s*=\s*"([^"]+)")re", "name = \"%d %V %m%n\"",
     &ConfigParser::ParseFormat},
    {"[rules]",
     R"re((\*|\w+)\.(?:\*|([=!]?)(\w+))\s+(>stdout|>stderr|"[^"%]+")\s*(?:;\s*(\w*))?)re",
     "category.LEVEL output; format, where category is *, a name or a prefix_, LEVEL is *, NAME, "
     "=NAME or !NAME, output is >stdout, >stderr or a quoted path without %, and \"; format\" may "
     "be left out",
     &ConfigParser::ParseRule},
};

bool ConfigParser::Fail(const std::string& what) {
  *error_ = path_ + ':' + std::to_string(line_number_) + ": " + what;
  return false;
}

std::unique_ptr<const Config> ConfigParser::Parse() {
  auto& names = config_->level_names;
  names[ZLOG_LEVEL_DEBUG] = "DEBUG";
  names[ZLOG_LEVEL_INFO] = "INFO";
  names[ZLOG_LEVEL_NOTICE] = "NOTICE";
  names[ZLOG_LEVEL_WARN] = "WARN";
  names[ZLOG_LEVEL_ERROR] = "ERROR";
  names[ZLOG_LEVEL_FATAL] = "FATAL";
  AddFormat("", "%d %V [%p:%F:%L] %m%n");

  errno = 0;
  std::ifstream file(path_);
  for (std::string line; std::getline(file, line);) {
    ++line_number_;
    if (!ParseLine(Trimmed(line))) return nullptr;
  }
  if (!file.eof()) {
    *error_ = path_ + ": cannot be read (" + std::strerror(errno) + "); name a readable file";
    return nullptr;
  }
  for (PendingRule& rule : pending_rules_) {
    if (!Open(&rule)) return nullptr;
  }
  return std::move(config_);
}

bool ConfigParser::ParseLine(const std::string& line) {
  if (line.empty() || line.front() == '#') return true;
  if (line.size() > kMaxLineLength) return Fail("line too long; use at most 4096 characters");
  if (line.front() == '[') return ParseSection(line);
  if (section_ == nullptr) return Fail("no section; write [rules] or another section's name above");
  std::smatch match;
  if (std::regex_match(line, match, std::regex(section_->form))) {
    return (this->*section_->parse)(match);
  }
  return Fail(Quoted(line) + " in " + std::string(section_->header) + "; write " + section_->hint);
}

bool ConfigParser::ParseSection(const std::string& line) {
  const auto* const found =
      std::find_if(std::begin(kSections), std::end(kSections),
                   [&line](const Section& section) { return section.header == line; });
  if (found == std::end(kSections) || (section_ != nullptr && found <= section_)) {
    return Fail(Quoted(line) +
                " is unknown, repeated or out of order; use [global], [levels], "
                "[formats] and [rules], each at most once, in this order");
  }
  section_ = found;
  return true;
}

bool ConfigParser::ParseGlobal(const std::smatch& line) {
  if (line[2].matched) file_mode_ = static_cast<mode_t>(std::stoul(line[2], nullptr, 8));
  return !line[1].matched || AddFormat("", line[1]);
}

bool ConfigParser::ParseLevel(const std::smatch& line) {
  const std::string name = UpperCase(line[1]);
  const int level = std::stoi(line[2]);
  auto& names = config_->level_names;
  if (level < kMinLevel || level > kMaxLevel) {
    return Fail("level " + line[2].str() + " is out of range; use a number from 1 to 253");
  }
  auto& name_of_level = names[static_cast<std::size_t>(level)];
  if (!name_of_level.empty() || std::find(names.begin(), names.end(), name) != names.end()) {
    return Fail("the name or the number of level " + name + " = " + line[2].str() +
                " is in use; use others");
  }
  name_of_level = name;
  return true;
}

bool ConfigParser::ParseFormat(const std::smatch& line) {
  if (formats_.count(line[1]) == 0) return AddFormat(line[1], line[2]);
  return Fail("format " + Quoted(line[1]) + " is declared twice; use another name");
}

bool ConfigParser::AddFormat(const std::string& name, const std::string& pattern) {
  std::string error;
  auto format = RecordFormat::Compile(pattern, &error);
  if (!format) return Fail(error);
  formats_.insert_or_assign(name, *std::move(format));
  return true;
}

bool ConfigParser::ParseRule(const std::smatch& line) {
  const auto& names = config_->level_names;
  // "*" leaves the group empty, which finds the unused level 0: every level is that or above.
  const auto* const level = std::find(names.begin(), names.end(), UpperCase(line[3]));
  if (level == names.end()) {
    return Fail("level " + Quoted(line[3]) + " is not declared; declare it in [levels]");
  }
  const auto format = formats_.find(line[5]);
  if (format == formats_.end()) {
    return Fail("format " + Quoted(line[5]) + " is not declared; declare it in [formats]");
  }
  const auto number = static_cast<std::size_t>(level - names.begin());
  pending_rules_.push_back(
      {line_number_, line[1], LevelsOf(line[2], number), format->second, line[4]});
  return true;
}

bool ConfigParser::Open(PendingRule* rule) {
  const auto& target = rule->target;
  auto output = [&] {
    if (target == ">stdout") return Output::Standard(STDOUT_FILENO);
    if (target == ">stderr") return Output::Standard(STDERR_FILENO);
    return Output::File(target.substr(1, target.size() - 2), file_mode_);
  }();
  if (!output) {
    line_number_ = rule->line_number;
    return Fail("cannot open " + target + " (" + std::strerror(errno) +
                "); name a file that this process may append to");
  }
  config_->rules.push_back(
      {std::move(rule->category), rule->levels, std::move(rule->format), *std::move(output)});
  return true;
}

}  // namespace

bool Rule::Matches(std::string_view name) const {
  if (category == "*" || category == name) return true;
  if (category.back() != '_') return false;
  const std::string_view prefix = category;
  return name == prefix.substr(0, prefix.size() - 1) || name.substr(0, prefix.size()) == prefix;
}

std::unique_ptr<const Config> LoadConfig(const std::string& path, std::string* error) {
  return ConfigParser(path, error).Parse();
}

}  // namespace zlog_standin
