#ifndef ZUSKUX_PLATFORM_ZLOG_OUTPUT_H_
#define ZUSKUX_PLATFORM_ZLOG_OUTPUT_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace zlog_standin {

/// Where a rule's records go: a file that it opened and closes again, or one of the process's
/// standard streams.
class Output {
 public:
  /// The standard stream with descriptor `fd`, whatever it is connected to at the time of a write.
  static std::optional<Output> Standard(int fd) { return Output(fd, /*owned=*/false); }

  /// Opens `path` for appending, created with `mode` where missing. On failure `errno` says why.
  static std::optional<Output> File(const std::string& path, mode_t mode);

  Output(Output&& other) noexcept;
  Output& operator=(Output&&) = delete;
  ~Output();

  /// Writes `line` with one write(2), and the rest with further ones where that was cut short.
  void Write(std::string_view line) const;

 private:
  Output(int fd, bool owned) : fd_(fd), owned_(owned) {}

  int fd_;
  bool owned_;
};

}  // namespace zlog_standin

#endif  // ZUSKUX_PLATFORM_ZLOG_OUTPUT_H_
