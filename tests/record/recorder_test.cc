#include "reference/record/recorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "reference/record/recording_reader.h"
#include "tests/hal/messages.h"
#include "tests/record/recordings.h"

namespace reference {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

// Without the times, which must not decrease.
std::vector<std::string> ReadEntries(RecordingReader* recording) {
  std::vector<std::string> entries;
  std::uint64_t previous = 0;
  record::Entry entry;
  while (recording->Next(&entry)) {
    EXPECT_GE(entry.time_ns(), previous);
    previous = entry.time_ns();
    entry.clear_time_ns();
    entries.push_back(entry.ShortDebugString());
  }
  return entries;
}

std::vector<std::string> ReadEntries(const std::string& path) {
  RecordingReader recording(path);
  return ReadEntries(&recording);
}

const void* Address(std::uintptr_t value) {
  return reinterpret_cast<const void*>(value);  // NOLINT(performance-no-int-to-ptr)
}

TEST(Recorder, WritesEverything) {
  const TestFolder folder;
  const std::string path = folder.Path("recording");
  {
    Recorder recorder(path, "test 1");
    recorder.ServerFound();
    recorder.Interface(3, "eth3", 2, 0x01000103);
    recorder.BeginReinstall();
    const HalRequest install = {HalOperation::kInstallMpls, 17, 99, "payload"};
    EXPECT_EQ(recorder.Request(install, Address(0x55D0C8A41E20)), 1U);
    const HalRequest destroy = {HalOperation::kDestroyVlan, 12, 0, "other"};
    EXPECT_EQ(recorder.Request(destroy, nullptr), 2U);
    recorder.EndReinstall();
    recorder.Result(2, destroy, kHalNotFound, "not there");
    recorder.Result(1, install, kHalSuccess, "");
    recorder.Event("in sync");
  }
  RecordingReader recording(path);
  EXPECT_EQ(recording.header().program(), "test 1");
  EXPECT_TRUE(recording.schema().built_in());
  EXPECT_THAT(
      ReadEntries(&recording),
      ElementsAre(
          "server_found { }", "interface { lim_id: 3 name: \"eth3\" type: 2 ifindex: 16777475 }",
          "begin_reinstall { }",
          "request { number: 1 operation: 13 id: 17 secondary_id: 99 payload: \"payload\" "
          "wrapper: 94355207757344 }",
          "request { number: 2 operation: 6 id: 12 payload: \"other\" }", "end_reinstall { }",
          "result { number: 2 operation: 6 id: 12 code: 4 reason: \"not there\" }",
          "result { number: 1 operation: 13 id: 17 secondary_id: 99 }",
          "event { line: \"in sync\" }"));
  EXPECT_FALSE(recording.cut_at());
}

TEST(Recorder, StartsNow) {
  const TestFolder folder;
  const auto now = [] {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
  };
  const auto before = now();
  const Recorder recorder(folder.Path("recording"), "test 1");
  const auto after = now();
  const RecordingReader recording(folder.Path("recording"));
  const auto start = static_cast<std::int64_t>(recording.header().start_time_ns());
  EXPECT_GE(start, before);
  EXPECT_LE(start, after);
}

TEST(Recorder, AnEventIsInTheFileAtOnceWithWhatPrecedesIt) {
  const TestFolder folder;
  Recorder recorder(folder.Path("recording"), "test 1");
  recorder.BeginReinstall();
  recorder.Event("lost");
  EXPECT_THAT(ReadEntries(folder.Path("recording")),
              ElementsAre("begin_reinstall { }", "event { line: \"lost\" }"));
}

TEST(Recorder, FlushesSoon) {
  const TestFolder folder;
  Recorder recorder(folder.Path("recording"), "test 1");
  for (const char* const round : {"first", "second"}) {
    SCOPED_TRACE(round);
    const std::size_t before = ReadEntries(folder.Path("recording")).size();
    recorder.BeginReinstall();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ReadEntries(folder.Path("recording")).size() == before &&
           std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(ReadEntries(folder.Path("recording")).size(), before + 1);
  }
}

TEST(Recorder, OnlyTheOwnerReadsARecording) {
  const TestFolder folder;
  const mode_t before = ::umask(0);
  { const Recorder recorder(folder.Path("recording"), "test 1"); }
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(folder.Path("recording").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST(Recorder, KeepsAFileThatIsThereAndTakesANumber) {
  const TestFolder folder;
  const std::string path = folder.Path("recording");
  WriteFile(path, "kept");
  ASSERT_EQ(::symlink("/nonexistent", (path + ".1").c_str()), 0);
  std::vector<std::string> log;
  const LogFunction note = [&log](LogLevel, const std::string& line) { log.push_back(line); };
  {
    // Each of two writers gets its own file.
    Recorder first(path, "test 1", note);
    Recorder second(path, "test 2", note);
    first.Event("first");
    second.Event("second");
  }
  EXPECT_EQ(ReadFile(path), "kept");
  EXPECT_THAT(ReadEntries(path + ".2"), ElementsAre("event { line: \"first\" }"));
  EXPECT_THAT(ReadEntries(path + ".3"), ElementsAre("event { line: \"second\" }"));
  EXPECT_THAT(log, ElementsAre(path + " exists; recording to " + path + ".2",
                               path + " exists; recording to " + path + ".3"));
}

TEST(Recorder, CreatesANewFileSilently) {
  const TestFolder folder;
  int lines = 0;
  {
    const Recorder recorder(folder.Path("new"), "test 1", [&](LogLevel, const auto&) { ++lines; });
  }
  EXPECT_EQ(lines, 0);
}

TEST(Recorder, FinishesOnce) {
  const TestFolder folder;
  Recorder recorder(folder.Path("recording"), "test 1");
  recorder.BeginReinstall();
  EXPECT_TRUE(recorder.Finish());
  EXPECT_TRUE(recorder.Finish());
  const HalRequest request = {HalOperation::kInstallVrf, 1, 0, "p"};
  EXPECT_EQ(recorder.Request(request, nullptr), 1U);
  recorder.Event("late");
  EXPECT_THAT(ReadEntries(folder.Path("recording")), ElementsAre("begin_reinstall { }"));
}

TEST(Recorder, ThrowsWithThePathTheReasonAndTheRemedy) {
  struct Case {
    const char* path;
    const char* text;
  };
  for (const Case& test :
       {Case{"/nonexistent/recording",
             "cannot record to /nonexistent/recording: No such file or directory; create the "
             "folder first with mkdir -p /nonexistent, or correct the path"},
        Case{"/dev/full",
             "cannot record to /dev/full: it is not a regular file; name another file"}}) {
    try {
      const Recorder recorder(test.path, "test 1");
      ADD_FAILURE() << test.path << " can be recorded to";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), test.text);
    }
  }
}

// Limits the process's files to `size` bytes for the object's lifetime.
class LimitedFileSize {
 public:
  explicit LimitedFileSize(rlim_t size) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit = {size, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~LimitedFileSize() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, handler_);
  }
  LimitedFileSize(const LimitedFileSize&) = delete;
  LimitedFileSize& operator=(const LimitedFileSize&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST(Recorder, StopsWithOneLineWhenTheFileCannotBeWritten) {
  const TestFolder folder;
  const std::string path = folder.Path("recording");
  const HalRequest request = {HalOperation::kInstallVrf, 1, 0, std::string(1000, 'p')};
  std::string log;
  {
    const LimitedFileSize limited(16'384);
    Recorder recorder(path, "test 1", [&log](LogLevel level, const std::string& line) {
      EXPECT_EQ(level, LogLevel::kError);
      log += line + '\n';
    });
    for (std::uint64_t number = 1; number <= 200; ++number) {
      EXPECT_EQ(recorder.Request(request, nullptr), number);
    }
    recorder.Event("still there");
    EXPECT_FALSE(recorder.Finish());
  }
  EXPECT_EQ(log,
            "recording to " + path +
                " stopped: File too large; what was written before is kept; free space and restart "
                "to record again\n");
  RecordingReader recording(path);
  const auto entries = ReadEntries(&recording);
  EXPECT_GE(entries.size(), 10U);
  EXPECT_LE(entries.size(), 16U);
  EXPECT_TRUE(recording.cut_at());
}

TEST(Recorder, LeavesNoFileWhoseHeaderCannotBeWritten) {
  const TestFolder folder;
  const LimitedFileSize limited(10);
  EXPECT_THROW(Recorder(folder.Path("recording"), "test 1"), std::runtime_error);
  EXPECT_FALSE(std::filesystem::exists(folder.Path("recording")));
}

// Only the final writes fail.
TEST(Recorder, AnIncompleteEndIsNotACompleteRecording) {
  const TestFolder folder;
  Recorder recorder(folder.Path("recording"), "test 1");
  const auto size = std::filesystem::file_size(folder.Path("recording"));
  const LimitedFileSize limited(size + 10);
  recorder.Request({HalOperation::kInstallVrf, 1, 0, std::string(1000, 'p')}, nullptr);
  EXPECT_FALSE(recorder.Finish());
}

TEST(Recorder, ReportsAtOnceThatAnEventCannotBeWritten) {
  const TestFolder folder;
  const std::string path = folder.Path("recording");
  std::string log;
  Recorder recorder(path, "test 1", [&log](LogLevel, const std::string& line) { log += line; });
  const LimitedFileSize limited(std::filesystem::file_size(path) + 10);
  recorder.Event(std::string(1000, 'e'));
  EXPECT_THAT(log, HasSubstr("recording to " + path + " stopped: File too large; "));
}

// Some file systems report only at the close that they could not keep what was written.
TEST(Recorder, AFileThatCannotBeClosedIsNotACompleteRecording) {
  const TestFolder folder;
  const std::string path = folder.Path("recording");
  std::string log;
  Recorder recorder(path, "test 1", [&log](LogLevel, const std::string& line) { log += line; });
  for (const auto& open : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ended;
    if (std::filesystem::read_symlink(open, ended) != path) continue;
    ::close(std::stoi(open.path().filename()));
    break;
  }
  EXPECT_FALSE(recorder.Finish());
  EXPECT_THAT(log, HasSubstr("recording to " + path + " stopped: Bad file descriptor; "));
}

TEST(Recorder, LeavesOutAPayloadThatIsTooLong) {
  const TestFolder folder;
  const std::size_t limit = (1 << 20) - 1024;
  {
    Recorder recorder(folder.Path("recording"), "test 1");
    recorder.Request({HalOperation::kReplaceMpls, UINT32_MAX, UINT32_MAX, std::string(limit, 'p')},
                     Address(UINTPTR_MAX));
    recorder.Request({HalOperation::kInstallVlan, 1, 0, std::string(limit + 1, 'p')}, nullptr);
  }
  const auto entries = ReadEntries(folder.Path("recording"));
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_THAT(entries[0], HasSubstr("payload: \"pppp"));
  EXPECT_EQ(entries[1], "request { number: 2 operation: 5 id: 1 omitted_payload_bytes: 1047553 }");
}

TEST(Recorder, TruncatesLongTexts) {
  const TestFolder folder;
  {
    Recorder recorder(folder.Path("recording"), "test 1");
    recorder.Event(std::string(65'536, 'e') + "cut");
    recorder.Interface(1, std::string(65'536, 'n') + "cut", 0, 0);
  }
  EXPECT_THAT(ReadEntries(folder.Path("recording")),
              ElementsAre("event { line: \"" + std::string(65'536, 'e') + "\" }",
                          "interface { lim_id: 1 name: \"" + std::string(65'536, 'n') + "\" }"));
}

TEST(Recorder, NumbersAndOrdersTheRequestsOfSeveralThreads) {
  const TestFolder folder;
  constexpr std::uint64_t kThreads = 4;
  constexpr std::uint64_t kRequests = 500;
  {
    Recorder recorder(folder.Path("recording"), "test 1");
    std::vector<std::thread> threads;
    for (std::uint64_t thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&recorder] {
        const HalRequest request = {HalOperation::kInstallVrf, 1, 0, "p"};
        for (std::uint64_t count = 0; count < kRequests; ++count) {
          recorder.Result(recorder.Request(request, nullptr), request, kHalSuccess, "");
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
  RecordingReader recording(folder.Path("recording"));
  record::Entry entry;
  std::uint64_t requests = 0;
  std::set<std::uint64_t> results;
  std::uint64_t previous_time = 0;
  while (recording.Next(&entry)) {
    EXPECT_GE(entry.time_ns(), previous_time);
    previous_time = entry.time_ns();
    if (entry.has_request()) {
      EXPECT_EQ(entry.request().number(), ++requests);
    } else {
      EXPECT_LE(entry.result().number(), requests);
      results.insert(entry.result().number());
    }
  }
  EXPECT_EQ(requests, kThreads * kRequests);
  EXPECT_EQ(results.size(), kThreads * kRequests);
}

}  // namespace
}  // namespace reference
