#include "zlog/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace zlog_standin {

std::optional<Output> Output::File(const std::string& path, mode_t mode) {
  const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, mode);
  if (fd < 0) return std::nullopt;
  return Output(fd, /*owned=*/true);
}

Output::Output(Output&& other) noexcept
    : fd_(other.fd_), owned_(std::exchange(other.owned_, false)) {}

Output::~Output() {
  if (owned_) close(fd_);
}

void Output::Write(std::string_view line) const {
  while (!line.empty()) {
    const ssize_t written = write(fd_, line.data(), line.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return;
    }
    line.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace zlog_standin
