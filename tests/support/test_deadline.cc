/// Ends the program if a test takes longer than ZUSKUX_TEST_DEADLINE seconds, and names the test,
/// so that a hanging test fails like any other. Takes effect when linked into a test program.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace {

constexpr int kFailed = 1;

// The signal handler's message. Built when a test starts, because a handler must not allocate.
std::string& Line() {
  static std::string line;
  return line;
}

void EndProgram(int /*signal*/) {
  const std::string& line = Line();
  const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
  _exit(written < 0 ? kFailed + 1 : kFailed);
}

class TestDeadline : public testing::EmptyTestEventListener {
 public:
  void OnTestStart(const testing::TestInfo& test) override {
    Line() = std::string("[  FAILED  ] ") + test.test_suite_name() + '.' + test.name() +
             ": not over after " + std::to_string(ZUSKUX_TEST_DEADLINE) + " s\n";
    std::signal(SIGALRM, EndProgram);
    alarm(ZUSKUX_TEST_DEADLINE);
  }

  void OnTestEnd(const testing::TestInfo& /*test*/) override { alarm(0); }
};

// GoogleTest owns the listener.
const bool kListening = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new TestDeadline);
  return true;
}();

}  // namespace
