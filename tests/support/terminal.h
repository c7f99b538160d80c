#ifndef ZUSKUX_TESTS_SUPPORT_TERMINAL_H_
#define ZUSKUX_TESTS_SUPPORT_TERMINAL_H_

#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

namespace reference {

/// A terminal that passes text through unchanged. It is `columns` wide and has `lines` lines; 0 if
/// it does not report its height.
class Terminal {
 public:
  explicit Terminal(unsigned short columns, unsigned short lines = 0) {
    winsize size{};
    size.ws_col = columns;
    size.ws_row = lines;
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&user_, &program_, nullptr, &raw, &size) != 0) std::abort();
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() {
    close(user_);
    close(program_);
  }

  int program() const { return program_; }

  /// The next text that the program writes.
  std::string Read(std::size_t size) const {
    std::string text;
    while (text.size() < size) {
      std::array<char, 100> part{};
      const ssize_t got = read(user_, part.data(), std::min(part.size(), size - text.size()));
      if (got <= 0) break;
      text.append(part.data(), static_cast<std::size_t>(got));
    }
    return text;
  }

  /// The next text up to and with `end`; less if the program is silent for a minute.
  std::string ReadUntil(const std::string& end) const {
    constexpr int kPatience = 60'000;
    std::string text;
    pollfd readable{user_, POLLIN, 0};
    while (text.size() < end.size() ||
           text.compare(text.size() - end.size(), end.size(), end) != 0) {
      if (poll(&readable, 1, kPatience) != 1) break;
      const std::string next = Read(1);
      if (next.empty()) break;
      text += next;
    }
    return text;
  }

 private:
  int user_ = -1;
  int program_ = -1;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_SUPPORT_TERMINAL_H_
