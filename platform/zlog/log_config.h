#ifndef ZUSKUX_PLATFORM_ZLOG_LOG_CONFIG_H_
#define ZUSKUX_PLATFORM_ZLOG_LOG_CONFIG_H_

#include <array>
#include <bitset>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zlog/output.h"
#include "zlog/record_format.h"

namespace zlog_standin {

constexpr int kMinLevel = 1;
constexpr int kMaxLevel = 253;

/// The levels that something lets through; bit n stands for level n.
using LevelSet = std::bitset<kMaxLevel + 1>;

/// One line of the section [rules].
struct Rule {
  std::string category;  ///< "*", a name, or a prefix that ends in '_'.
  LevelSet levels;
  RecordFormat format;
  Output output;

  /// "*" matches every name, "a_" matches "a" and every name that starts with "a_".
  [[nodiscard]] bool Matches(std::string_view name) const;
};

/// A loaded configuration; immutable. Its files are open as long as it lives.
struct Config {
  std::array<std::string, LevelSet().size()> level_names;  ///< In capitals; empty if undeclared.
  std::vector<Rule> rules;
};

/// Reads the configuration file `path` and opens the files that its rules name. On failure returns
/// null and `error` names the place and the remedy; no file has been created for an invalid text.
std::unique_ptr<const Config> LoadConfig(const std::string& path, std::string* error);

}  // namespace zlog_standin

#endif  // ZUSKUX_PLATFORM_ZLOG_LOG_CONFIG_H_
