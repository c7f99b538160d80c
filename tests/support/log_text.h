#ifndef ZUSKUX_TESTS_SUPPORT_LOG_TEXT_H_
#define ZUSKUX_TESTS_SUPPORT_LOG_TEXT_H_

#include <regex>
#include <string>

namespace reference {

/// What a program logged, without the times and levels of its lines.
inline std::string WithoutTimes(const std::string& log) {
  static const std::regex kStart(
      "(^|\n)[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} "
      "(ERROR|WARNING|INFO|DEBUG) ");
  return std::regex_replace(log, kStart, "$1");
}

}  // namespace reference

#endif  // ZUSKUX_TESTS_SUPPORT_LOG_TEXT_H_
