#include "reference/manager/program/log_setup.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlog.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "dest_manager/trace.h"

namespace reference {
namespace {

constexpr char kCategory[] = "zuskux";

// The levels are those that the library logs at. No buffer limit, so no line is truncated.
constexpr std::string_view kConfig = R"([global]
buffer max = 0

[levels]
TRACE = 10
HAL_ERROR = 12

[formats]
line = "%d(%F %T).%us %-9V %F:%L %U: %m%n"

[rules]
)";

/// A file in the temporary directory, removed on destruction.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view text) {
    const int file = mkstemp(path_.data());
    const bool written =
        file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file >= 0) close(file);
    if (written) return;
    Remove();
    throw std::runtime_error("cannot write " + path_ + "; set TMPDIR to a directory with room");
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { Remove(); }

  const std::string& path() const { return path_; }

 private:
  void Remove() { unlink(path_.c_str()); }

  std::string path_ = std::filesystem::temp_directory_path() / "zuskux-log-XXXXXX";
};

void Start(const std::string& config_path) {
  if (zlog_init(config_path.c_str()) != 0) {
    throw std::runtime_error("cannot start logging with " + config_path +
                             "; correct the log configuration");
  }
  g_trace = zlog_get_category(kCategory);
}

// Looks where the format above puts the level.
bool IsError(std::string_view line) {
  constexpr std::size_t kLevelAt = sizeof "2024-05-17 08:15:30.123456" - 1 + 1;
  return line.size() > kLevelAt && line.substr(kLevelAt).rfind("HAL_ERROR", 0) == 0;
}

// Forwards whole lines to `sink` until the pipe is closed.
void Forward(int pipe, LogSink* sink) {
  // The program's own threads handle signals.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);

  std::array<char, std::size_t{64} * 1024> part{};
  std::string text;
  for (;;) {
    const ssize_t size = read(pipe, part.data(), part.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) break;
    text.append(part.data(), static_cast<std::size_t>(size));
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
      const auto line = std::string_view{text}.substr(begin, end + 1 - begin);
      sink->WriteRendered(IsError(line) ? LogLevel::kError : LogLevel::kDebug, line);
    }
    text.erase(0, begin);
  }
}

}  // namespace

LibraryLog::LibraryLog(bool trace, LogSink* sink) {
  if (pipe2(pipe_.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("cannot create a pipe for the log");
  }
  reader_ = std::thread(Forward, pipe_[0], sink);
  try {
    const TemporaryFile file(std::string(kConfig) + kCategory + (trace ? ".TRACE" : ".HAL_ERROR") +
                             " \"/proc/self/fd/" + std::to_string(pipe_[1]) + "\"; line\n");
    Start(file.path());
  } catch (...) {
    Close();
    throw;
  }
}

LibraryLog::LibraryLog(const std::string& config_path) { Start(config_path); }

LibraryLog::~LibraryLog() {
  g_trace = nullptr;
  zlog_fini();
  Close();
}

void LibraryLog::Close() {
  if (!reader_.joinable()) return;
  close(pipe_[1]);
  reader_.join();
  close(pipe_[0]);
}

}  // namespace reference
