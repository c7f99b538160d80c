#ifndef ZUSKUX_TESTS_SUPPORT_TERMINAL_H_
#define ZUSKUX_TESTS_SUPPORT_TERMINAL_H_

#include <pty.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

namespace reference {

/// A terminal that is `columns` wide and passes text through unchanged.
class Terminal {
 public:
  explicit Terminal(unsigned short columns) {
    winsize size{};
    size.ws_col = columns;
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

 private:
  int user_ = -1;
  int program_ = -1;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_SUPPORT_TERMINAL_H_
