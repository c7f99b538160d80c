#ifndef ZUSKUX_TESTS_MANAGER_PROCESS_H_
#define ZUSKUX_TESTS_MANAGER_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/test_folder.h"

namespace reference {

/// A scratch directory, removed with its contents on destruction.
class ScratchDirectory {
 public:
  std::string File(const std::string& name) const { return folder_.Path(name); }
  /// Writes a file and returns its path.
  std::string Write(const std::string& name, const std::string& text) const;

 private:
  TestFolder folder_;
};

std::string ReadText(const std::string& path);

/// A program under test, with its output in files. Killed on destruction if it still runs.
class Process {
 public:
  static constexpr int kToFile = -1;

  /// The first word is the program's path.
  explicit Process(std::vector<std::string> words) : Process(std::move(words), kToFile) {}
  /// Its standard error and output go to these descriptors, which are not owned, instead of `err`
  /// and `out`.
  Process(std::vector<std::string> words, int error, int output = kToFile);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  /// Waits for the end, within bounds. Returns the exit status, or -1 for any other end.
  int Wait();
  void Signal(int signal) const;
  /// Whether it has not ended yet.
  bool Runs() const;
  /// The process id.
  pid_t id() const { return child_; }
  /// Waits, within bounds, until the program has written `text` to its standard error `times`
  /// times.
  bool WaitForError(const std::string& text, int times = 1) const;
  /// The same for its standard output.
  bool WaitForOutput(const std::string& text, int times = 1) const;

  std::string out() const { return ReadText(files_.File("out")); }
  std::string err() const { return ReadText(files_.File("err")); }

 private:
  ScratchDirectory files_;
  pid_t child_ = -1;
};

/// How a program ended, and what it wrote.
struct Outcome {
  /// -1 if it did not exit by itself.
  int status;
  std::string out;
  /// Without the times of its log lines.
  std::string err;
};

/// Runs a program to its end.
Outcome Execute(const std::vector<std::string>& words);

}  // namespace reference

#endif  // ZUSKUX_TESTS_MANAGER_PROCESS_H_
