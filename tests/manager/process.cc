#include "tests/manager/process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "tests/support/log_text.h"

namespace reference {
namespace {

constexpr std::chrono::seconds kPatience{60};

bool Until(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

int Count(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

}  // namespace

std::string ScratchDirectory::Write(const std::string& name, const std::string& text) const {
  std::ofstream(File(name)) << text;
  return File(name);
}

std::string ReadText(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

Process::Process(std::vector<std::string> words, int error, int output) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  const auto redirect = [&](int standard, int to, const char* file) {
    if (to >= 0) {
      posix_spawn_file_actions_adddup2(&actions, to, standard);
    } else {
      posix_spawn_file_actions_addopen(&actions, standard, files_.File(file).c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
  };
  redirect(STDOUT_FILENO, output, "out");
  redirect(STDERR_FILENO, error, "err");
  const int failed =
      posix_spawn(&child_, words[0].c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) throw std::runtime_error("cannot start " + words[0]);
}

Process::~Process() {
  if (child_ < 0) return;
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
}

int Process::Wait() {
  int status = 0;
  if (!Until([&] { return waitpid(child_, &status, WNOHANG) != 0; })) return -1;
  child_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool Process::Runs() const {
  siginfo_t ended{};
  return waitid(P_PID, static_cast<id_t>(child_), &ended, WEXITED | WNOWAIT | WNOHANG) == 0 &&
         ended.si_pid == 0;
}

void Process::Signal(int signal) const { kill(child_, signal); }

bool Process::WaitForError(const std::string& text, int times) const {
  return Until([&] { return Count(err(), text) >= times; });
}

bool Process::WaitForOutput(const std::string& text, int times) const {
  return Until([&] { return Count(out(), text) >= times; });
}

Outcome Execute(const std::vector<std::string>& words) {
  Process process(words);
  const int status = process.Wait();
  return {status, process.out(), WithoutTimes(process.err())};
}

}  // namespace reference
