#include "reference/text/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "reference/text/file_remedy.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kMode = 0666;

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    fd_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  } else {
    // Replaces what a symbolic link names, not the link.
    target_ = fs::exists(status) ? fs::canonical(path, ignored).string() : path;
    OpenNameless();
  }
  if (fd_ < 0) ThrowCannotWrite(errno);
}

OutputFile::~OutputFile() {
  close(fd_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void OutputFile::OpenNameless() {
  const fs::path folder = fs::path(target_).parent_path();
  fd_ = open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kMode);
  if (fd_ >= 0 || errno != EOPNOTSUPP) return;
  // Not every file system has nameless files.
  const std::string name = target_ + '.' + std::to_string(getpid());
  fd_ = open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, kMode);
  if (fd_ >= 0) temporary_ = name;
}

void OutputFile::Write(std::string_view text) {
  WriteAll(text);
  if (target_.empty()) return;
  if (temporary_.empty()) {
    const std::string name = target_ + '.' + std::to_string(getpid());
    const std::string self = "/proc/self/fd/" + std::to_string(fd_);
    if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      ThrowCannotWrite(errno);
    }
    temporary_ = name;
  }
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0) ThrowCannotWrite(errno);
  temporary_.clear();
}

void OutputFile::WriteAll(std::string_view text) const {
  while (!text.empty()) {
    const ssize_t written = write(fd_, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      ThrowCannotWrite(errno);
    }
  }
}

void OutputFile::ThrowCannotWrite(int error) const {
  throw std::runtime_error("cannot write " + Printable(path_) + ": " +
                           std::generic_category().message(error) + "; " +
                           FileRemedy(path_, error));
}

}  // namespace reference
