#include "benchmarks/child_process.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fstream>
#include <system_error>

namespace bench {
namespace {

void RunOnFirstCore() {
  cpu_set_t cores;
  if (sched_getaffinity(0, sizeof cores, &cores) != 0) return;
  std::size_t first = 0;
  while (!CPU_ISSET(first, &cores)) ++first;
  CPU_ZERO(&cores);
  CPU_SET(first, &cores);
  sched_setaffinity(0, sizeof cores, &cores);
}

}  // namespace

ChildProcess::ChildProcess(std::vector<std::string> command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid_ > 0) return;
  RunOnFirstCore();
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  execv(arguments[0], arguments.data());
  _exit(127);
}

ChildProcess::~ChildProcess() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

bool ChildProcess::HasEnded() const {
  siginfo_t end{};
  return waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         end.si_pid == pid_;
}

std::chrono::nanoseconds ChildProcess::ProcessorTime() const {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &time) != 0) {
    throw std::system_error(errno, std::generic_category(), "the program's processor time");
  }
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::size_t ChildProcess::ResidentBytes() const {
  // All pages, then the resident ones.
  std::ifstream file("/proc/" + std::to_string(pid_) + "/statm");
  std::size_t pages = 0;
  if (!(file >> pages >> pages)) throw std::runtime_error("the program has ended");
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace bench
