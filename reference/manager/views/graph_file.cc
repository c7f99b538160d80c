#include "reference/manager/views/graph_file.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace reference {
namespace {

/// Text for another program's standard input, or from its standard output.
class MemoryFile {
 public:
  MemoryFile() : fd_(memfd_create("graph", MFD_CLOEXEC)) {
    if (fd_ < 0) ThrowFailed();
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { close(fd_); }

  int fd() const { return fd_; }

  /// Leaves the position at the beginning.
  void Fill(const std::string& text) const {
    std::size_t at = 0;
    while (at < text.size()) {
      const ssize_t written = pwrite(fd_, &text[at], text.size() - at, static_cast<off_t>(at));
      if (written < 0) ThrowFailed();
      at += static_cast<std::size_t>(written);
    }
  }

  std::string Text() const {
    std::string text(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)), '\0');
    std::size_t at = 0;
    while (at < text.size()) {
      const ssize_t size = pread(fd_, &text[at], text.size() - at, static_cast<off_t>(at));
      if (size <= 0) ThrowFailed();
      at += static_cast<std::size_t>(size);
    }
    return text;
  }

 private:
  [[noreturn]] static void ThrowFailed() {
    throw std::runtime_error("cannot draw the graph: " + std::generic_category().message(errno) +
                             "; write a .dot file instead");
  }

  const int fd_;
};

// Runs `dot` with one option and returns its exit status; throws if there is none.
int RunDot(std::string option, int input, int output, int error_output,
           std::optional<std::chrono::seconds> processor_time) {
  std::string program = "dot";
  const std::array<char*, 3> arguments = {program.data(), option.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, error_output, STDERR_FILENO);
  pid_t child = 0;
  const int error = posix_spawnp(&child, "dot", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error == ENOENT) {
    throw std::runtime_error(
        "cannot draw the graph: dot is missing; install the package graphviz or write a .dot file");
  }
  if (error != 0) {
    throw std::runtime_error("cannot run dot: " + std::generic_category().message(error));
  }
  if (processor_time) {
    const auto seconds = static_cast<rlim_t>(processor_time->count());
    const rlimit limit = {seconds, seconds};
    prlimit(child, RLIMIT_CPU, &limit, nullptr);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}

void LookForDot() {
  const MemoryFile nothing;
  static_cast<void>(RunDot("-V", nothing.fd(), nothing.fd(), nothing.fd(), std::nullopt));
}

}  // namespace

std::string DrawGraph(const std::string& text, std::optional<std::chrono::seconds> processor_time) {
  const MemoryFile input;
  const MemoryFile output;
  input.Fill(text);
  if (RunDot("-Tsvg", input.fd(), output.fd(), STDERR_FILENO, processor_time) != EXIT_SUCCESS) {
    throw std::runtime_error(
        "cannot draw the graph: dot failed; write a .dot file to see its input");
  }
  return output.Text();
}

bool GraphFile::IsName(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension();
  return extension == ".svg" || extension == ".dot" || extension == ".gv";
}

GraphFile::GraphFile(const std::string& path)
    : drawn_(boost::algorithm::ends_with(path, ".svg")), file_(path) {
  if (drawn_) LookForDot();
}

void GraphFile::Write(const std::string& text) {
  file_.Write(drawn_ ? DrawGraph(text, std::nullopt) : text);
}

}  // namespace reference
