#include "reference/log/log_sink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/terminal.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::MatchesRegex;

constexpr char kTime[] = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} ";

// No text ends like this.
const std::string kNever(1, '\0');  // NOLINT(cert-err58-cpp)

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

class Pipe {
 public:
  Pipe() {
    if (pipe2(ends_.data(), O_CLOEXEC) != 0) std::abort();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    CloseReader();
    CloseWriter();
  }

  int reader() const { return ends_[0]; }
  int writer() const { return ends_[1]; }
  void CloseReader() { Close(&ends_[0]); }
  void CloseWriter() { Close(&ends_[1]); }

  /// Reads until `end`, or until the writer closes.
  std::string ReadUntil(const std::string& end) const {
    std::string text;
    while (text.size() < end.size() ||
           text.compare(text.size() - end.size(), end.size(), end) != 0) {
      std::array<char, 4096> part{};
      const ssize_t size = read(ends_[0], part.data(), part.size());
      if (size <= 0) break;
      text.append(part.data(), static_cast<std::size_t>(size));
    }
    return text;
  }

  /// Everything that a sink, destroyed by now, has written.
  std::string ReadAll() {
    CloseWriter();
    return ReadUntil(kNever);
  }

 private:
  static void Close(int* fd) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }

  std::array<int, 2> ends_{-1, -1};
};

LogSink::Options To(int fd) {
  LogSink::Options options;
  options.fd = fd;
  return options;
}

class LogSinkTest : public ::testing::Test {
 protected:
  LogSinkTest() { unsetenv("JOURNAL_STREAM"); }
  ~LogSinkTest() override { unsetenv("JOURNAL_STREAM"); }

  // As systemd does for a service.
  static void SetJournal(int fd) {
    struct stat status {};
    fstat(fd, &status);
    const std::string name = std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
    setenv("JOURNAL_STREAM", name.c_str(), 1);
  }

  Pipe pipe_;
};

TEST_F(LogSinkTest, PlainLinesHaveTheProgram) {
  {
    LogSink sink("program", To(pipe_.writer()));
    sink.Write(LogLevel::kError, "one");
    sink.Write(LogLevel::kInfo, "two\nthree\u009b");
    sink.WriteDiagnostic(LogLevel::kError, "file:1:2: wrong");
    sink.WriteRendered(LogLevel::kDebug, "rendered\n");
  }
  EXPECT_EQ(pipe_.ReadAll(),
            "program: one\nprogram: two\\nthree\\u009b\nfile:1:2: wrong\nrendered\n");
}

TEST_F(LogSinkTest, ShowsTimesAndLevelsWhenAskedTo) {
  {
    LogSink sink("program", To(pipe_.writer()));
    sink.ShowTimes();
    sink.Write(LogLevel::kError, "one");
    sink.Write(LogLevel::kWarning, "two\nthree");
    sink.WriteDiagnostic(LogLevel::kInfo, "file:1:2: wrong");
    sink.Write(LogLevel::kDebug, "four");
    sink.WriteRendered(LogLevel::kDebug, "rendered\n");
  }
  EXPECT_THAT(Lines(pipe_.ReadAll()),
              ElementsAre(MatchesRegex(kTime + std::string("ERROR program: one")),
                          MatchesRegex(kTime + std::string(R"(WARNING program: two\\nthree)")),
                          MatchesRegex(kTime + std::string("INFO program: file:1:2: wrong")),
                          MatchesRegex(kTime + std::string("DEBUG program: four")), "rendered"));
}

TEST_F(LogSinkTest, TheTimeIsNow) {
  const auto now = [] {
    const std::time_t time = std::time(nullptr);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%F %T", std::localtime(&time));
    return std::string(text.data());
  };
  const std::string before = now();
  {
    LogSink sink("program", To(pipe_.writer()));
    sink.ShowTimes();
    sink.Write(LogLevel::kInfo, "text");
  }
  const std::string after = now();
  const std::string time = pipe_.ReadAll().substr(0, before.size());
  EXPECT_LE(before, time);
  EXPECT_LE(time, after);
}

TEST_F(LogSinkTest, TheJournalGetsPriorities) {
  SetJournal(pipe_.writer());
  {
    LogSink sink("program", To(pipe_.writer()));
    sink.Write(LogLevel::kError, "plain");
    sink.ShowTimes();
    sink.Write(LogLevel::kError, "one");
    sink.Write(LogLevel::kWarning, "two\nthree\u009b");
    sink.Write(LogLevel::kInfo, "four");
    sink.WriteDiagnostic(LogLevel::kError, "file:1:2: wrong");
    sink.WriteRendered(LogLevel::kDebug, "rendered\nmore\n");
  }
  EXPECT_EQ(pipe_.ReadAll(),
            "<3>plain\n<3>one\n<4>two\\nthree\\u009b\n<6>four\n<3>file:1:2: "
            "wrong\n<7>rendered\n<7>more\n");
}

TEST_F(LogSinkTest, AStreamThatWasRedirectedIsNotTheJournal) {
  const Pipe journal;
  SetJournal(journal.writer());
  { LogSink("program", To(pipe_.writer())).Write(LogLevel::kError, "text"); }
  EXPECT_EQ(pipe_.ReadAll(), "program: text\n");
}

TEST_F(LogSinkTest, CountsTheLinesThatAnUnreadStreamDrops) {
  constexpr int kLines = 100'000;
  auto options = To(pipe_.writer());
  options.max_queued_bytes = 10'000;
  std::future<std::string> read;
  {
    LogSink sink("program", options);
    // On another thread, so that a sink that blocks fails the test instead of hanging it.
    auto written = std::async(std::launch::async, [&sink] {
      for (int i = 0; i < kLines; ++i) sink.Write(LogLevel::kInfo, "line " + std::to_string(i));
    });
    EXPECT_EQ(written.wait_for(std::chrono::seconds(20)), std::future_status::ready) << "blocked";
    read = std::async(std::launch::async, [this] { return pipe_.ReadUntil(kNever); });
  }
  pipe_.CloseWriter();

  // Each line either arrived or is counted in its place.
  int next = 0;
  int dropped = 0;
  for (const std::string& line : Lines(read.get())) {
    int count = 0;
    if (std::sscanf(line.c_str(), "program: %d lines were dropped", &count) == 1) {
      EXPECT_THAT(line, EndsWith(" dropped here: standard error was not read in time"));
      dropped += count;
      next += count;
    } else {
      ASSERT_EQ(line, "program: line " + std::to_string(next++));
    }
  }
  EXPECT_EQ(next, kLines);
  EXPECT_GT(dropped, kLines / 2);
}

TEST_F(LogSinkTest, AClosedReaderDoesNotEndTheProgram) {
  LogSink sink("program", To(pipe_.writer()));
  sink.Write(LogLevel::kInfo, "first");
  EXPECT_EQ(pipe_.ReadUntil("\n"), "program: first\n");
  pipe_.CloseReader();
  for (int i = 0; i < 100; ++i) {
    sink.Write(LogLevel::kInfo, "second");
    std::this_thread::sleep_for(milliseconds(1));
  }
}

TEST_F(LogSinkTest, ReportsLaterWhatItCouldNotWrite) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  {
    LogSink sink("program", To(full));
    sink.Write(LogLevel::kInfo, "lost");
    std::this_thread::sleep_for(milliseconds(100));
    // Makes room again.
    ASSERT_EQ(dup2(pipe_.writer(), full), full);
    sink.Write(LogLevel::kInfo, "kept");
  }
  close(full);
  EXPECT_EQ(pipe_.ReadAll(),
            "program: 1 line was dropped here: standard error was not read in time\n"
            "program: kept\n");
}

TEST_F(LogSinkTest, WaitsForANonBlockingStream) {
  fcntl(pipe_.writer(), F_SETFL, O_NONBLOCK);
  const std::string text(300'000, 'x');
  LogSink sink("program", To(pipe_.writer()));
  sink.Write(LogLevel::kInfo, text);
  EXPECT_EQ(pipe_.ReadUntil("\n"), "program: " + text + '\n');
}

TEST_F(LogSinkTest, TheEndWritesWhatIsQueued) {
  std::string expected;
  auto read = std::async(std::launch::async, [this] { return pipe_.ReadUntil("line 9999\n"); });
  {
    LogSink sink("program", To(pipe_.writer()));
    for (int i = 0; i < 10'000; ++i) {
      const std::string line = "line " + std::to_string(i);
      sink.Write(LogLevel::kInfo, line);
      expected += "program: " + line + '\n';
    }
  }
  EXPECT_EQ(read.get(), expected);
}

TEST_F(LogSinkTest, AFlushWaitsUntilAllIsWritten) {
  LogSink sink("program", To(pipe_.writer()));
  fcntl(pipe_.reader(), F_SETFL, O_NONBLOCK);
  for (int i = 0; i < 100; ++i) {
    sink.Write(LogLevel::kInfo, "line");
    sink.Flush();
    ASSERT_EQ(pipe_.ReadUntil(kNever), "program: line\n");
  }
}

TEST_F(LogSinkTest, TheEndDoesNotWaitLongForAReader) {
  auto options = To(pipe_.writer());
  options.flush_timeout = milliseconds(50);
  const auto start = steady_clock::now();
  {
    LogSink sink("program", options);
    sink.Write(LogLevel::kInfo, std::string(1'000'000, 'x'));
  }
  EXPECT_GE(steady_clock::now() - start, milliseconds(50));
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(60));
}

TEST_F(LogSinkTest, OnlyATerminalShowsTheStatus) {
  {
    LogSink sink("program", To(pipe_.writer()));
    EXPECT_EQ(sink.columns(), 0U);
    sink.ShowStatus("half way");
    sink.Write(LogLevel::kInfo, "line");
  }
  EXPECT_EQ(pipe_.ReadAll(), "program: line\n");
}

TEST_F(LogSinkTest, TheStatusStaysBelowTheLines) {
  const Terminal terminal(40);
  LogSink sink("p", To(terminal.program()));
  const auto read = [&](const std::string& expected) {
    EXPECT_EQ(terminal.Read(expected.size()), expected);
  };
  sink.ShowStatus("10%");
  read("10%");
  sink.ShowStatus("20%");
  read("\r\x1b[K20%");
  sink.Write(LogLevel::kInfo, "line");
  read("\r\x1b[Kp: line\n20%");
  sink.ShowStatus("");
  read("\r\x1b[K");
  sink.Write(LogLevel::kInfo, "line");
  read("p: line\n");
}

TEST_F(LogSinkTest, TheStatusFitsTheTerminal) {
  const Terminal terminal(5);
  LogSink sink("p", To(terminal.program()));
  EXPECT_EQ(sink.columns(), 5U);
  sink.ShowStatus("äöüxyz");
  EXPECT_EQ(terminal.Read(7), "äöüx");
}

}  // namespace
}  // namespace reference
