#include "tests/manager/kept_server.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>

namespace reference {

KeptServer::KeptServer(std::string program, std::string socket,
                       const std::vector<std::string>& options)
    : program_(std::move(program)), socket_(std::move(socket)) {
  Start(options);
  keeper_ = std::thread([this] { Keep(); });
}

KeptServer::~KeptServer() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
    Signal();
  }
  keeper_.join();
}

bool KeptServer::Kill() {
  const std::lock_guard lock(mutex_);
  return Signal();
}

int KeptServer::starts() const {
  const std::lock_guard lock(mutex_);
  return starts_;
}

void KeptServer::Start(const std::vector<std::string>& options) {
  std::vector<std::string> words = {program_, "--socket", socket_, "--quiet"};
  words.insert(words.end(), options.begin(), options.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const int error =
      posix_spawn(&child_, program_.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("cannot start " + program_);
  ++starts_;
  killed_ = false;
}

bool KeptServer::Signal() {
  if (killed_) return false;
  killed_ = true;
  return kill(child_, SIGKILL) == 0;
}

void KeptServer::Keep() {
  while (true) {
    siginfo_t ended{};
    // WNOWAIT does not reap the child, so its process id is not reused before `child_` is reset.
    waitid(P_PID, static_cast<id_t>(child_), &ended, WEXITED | WNOWAIT);
    const std::lock_guard lock(mutex_);
    waitpid(child_, nullptr, 0);
    child_ = -1;
    if (closing_) return;
    Start({});
  }
}

}  // namespace reference
