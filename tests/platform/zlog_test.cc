/// What this system needs from zlog, whichever library provides `zlog.h`.

#include <gtest/gtest.h>
#include <zlog.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/test_folder.h"

#ifndef ZUSKUX_ZLOG_CONF
#error "Define ZUSKUX_ZLOG_CONF as the path of platform/zlog/zuskux.zlog.conf"
#endif

namespace {

namespace fs = std::filesystem;

constexpr int kTrace = 10;
constexpr int kHalError = 12;
constexpr int kInfo = 40;
constexpr int kError = 100;

void Log(zlog_category_t* category, int level, const std::string& text) {
  constexpr std::string_view kFile = "src/dest_vlan/hai/hai_dest_vlan";
  constexpr std::string_view kFunction = "CreateDestination";
  zlog(category, kFile.data(), kFile.size(), kFunction.data(), kFunction.size(), 42, level, "%s",
       text.c_str());
}

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// Sets the process's time zone for its lifetime.
class TimeZone {
 public:
  explicit TimeZone(const char* name) {
    if (const char* const old = std::getenv("TZ")) old_ = old;
    setenv("TZ", name, 1);
    tzset();
  }
  ~TimeZone() {
    old_ ? setenv("TZ", old_->c_str(), 1) : unsetenv("TZ");
    tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  std::optional<std::string> old_;
};

/// The local time as `%d(%F %T)` shows it.
std::string LocalTime() {
  // Uses the clock that the log reads; `std::time` lags behind it.
  const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%F %T", &local)};
}

/// Runs each test in its own folder, with the library not initialised.
class ZlogTest : public testing::Test {
 protected:
  ~ZlogTest() override { zlog_fini(); }

  std::string WriteConfig(const std::string& text) const {
    std::ofstream(folder_.Path("zlog.conf")) << text;
    return folder_.Path("zlog.conf");
  }

  /// A configuration that writes the records of `zuskux` from `level` up to the file "log".
  std::string LogConfig(const std::string& pattern, const std::string& level = "DEBUG") const {
    return WriteConfig("[global]\nbuffer max = 0\n[levels]\nTRACE = 10\nHAL_ERROR = 12\n" +
                       ("[formats]\nf = \"" + pattern + "\"\n") + "[rules]\nzuskux." + level +
                       " \"" + folder_.Path("log") + "\"; f\n");
  }

  std::string ReadLog() const {
    std::ifstream file(folder_.Path("log"));
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const reference::TestFolder folder_;
};

TEST_F(ZlogTest, WithoutInitThereIsNoCategory) { EXPECT_EQ(zlog_get_category("zuskux"), nullptr); }

TEST_F(ZlogTest, InitOfAMissingFileFails) {
  EXPECT_EQ(zlog_init(folder_.Path("missing").c_str()), -1);
  EXPECT_EQ(zlog_get_category("zuskux"), nullptr);
}

TEST_F(ZlogTest, SecondInitFailsAndChangesNothing) {
  ASSERT_EQ(zlog_init(LogConfig("1 %m%n").c_str()), 0);
  EXPECT_EQ(zlog_init(LogConfig("2 %m%n").c_str()), -1);
  Log(zlog_get_category("zuskux"), kInfo, "text");
  EXPECT_EQ(ReadLog(), "1 text\n");
}

TEST_F(ZlogTest, AfterFiniThereIsNoCategoryUntilTheNextInit) {
  const auto config = LogConfig("%m%n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  zlog_fini();
  EXPECT_EQ(zlog_get_category("zuskux"), nullptr);
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  Log(zlog_get_category("zuskux"), kInfo, "again");
  EXPECT_EQ(ReadLog(), "again\n");
}

TEST_F(ZlogTest, ACategoryIsOneObject) {
  ASSERT_EQ(zlog_init(LogConfig("%m%n").c_str()), 0);
  const auto* const category = zlog_get_category("zuskux");
  ASSERT_NE(category, nullptr);
  EXPECT_EQ(zlog_get_category("zuskux"), category);
  EXPECT_NE(zlog_get_category("other"), category);
}

struct LevelCase {
  const char* lowest;
  std::vector<int> enabled;
  const char* log;
};

class ZlogLevelTest : public ZlogTest, public testing::WithParamInterface<LevelCase> {};

TEST_P(ZlogLevelTest, ARuleTakesItsLevelAndThoseAbove) {
  ASSERT_EQ(zlog_init(LogConfig("%V ", GetParam().lowest).c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  std::vector<int> enabled;
  for (const int level : {10, 12, 20, 40, 60, 80, 100, 120, 253}) {
    if (zlog_level_enabled(category, level) != 0) enabled.push_back(level);
    Log(category, level, "text");
  }
  EXPECT_EQ(enabled, GetParam().enabled);
  EXPECT_EQ(ReadLog(), GetParam().log);
}

INSTANTIATE_TEST_SUITE_P(
    Levels, ZlogLevelTest,
    testing::Values(LevelCase{"TRACE",
                              {10, 12, 20, 40, 60, 80, 100, 120, 253},
                              "TRACE HAL_ERROR DEBUG INFO NOTICE WARN ERROR FATAL UNKNOWN "},
                    LevelCase{"HAL_ERROR",
                              {12, 20, 40, 60, 80, 100, 120, 253},
                              "HAL_ERROR DEBUG INFO NOTICE WARN ERROR FATAL UNKNOWN "},
                    LevelCase{"WARN", {80, 100, 120, 253}, "WARN ERROR FATAL UNKNOWN "}),
    [](const auto& test) { return test.param.lowest; });

TEST_F(ZlogTest, ACategoryWithoutARuleIsSilent) {
  ASSERT_EQ(zlog_init(LogConfig("%m%n").c_str()), 0);
  for (const char* const name : {"zus", "zuskux_vlan", "other"}) {
    auto* const category = zlog_get_category(name);
    EXPECT_EQ(zlog_level_enabled(category, kError), 0) << name;
    Log(category, kError, "text");
  }
  EXPECT_EQ(ReadLog(), "");
}

TEST_F(ZlogTest, EveryRuleOfTheCategoryWrites) {
  const std::string log = '"' + folder_.Path("log") + '"';
  ASSERT_EQ(zlog_init(WriteConfig("[formats]\na = \"a %m%n\"\nb = \"b %m%n\"\n[rules]\n"
                                  "zuskux.INFO " +
                                  log + "; a\nzuskux.ERROR " + log + "; b\n")
                          .c_str()),
            0);
  auto* const category = zlog_get_category("zuskux");
  Log(category, kInfo, "info");
  Log(category, kError, "error");
  EXPECT_EQ(ReadLog(), "a info\na error\nb error\n");
}

struct FormatCase {
  const char* name;
  const char* pattern;
  std::string expected;
};

class ZlogFormatTest : public ZlogTest, public testing::WithParamInterface<FormatCase> {};

TEST_P(ZlogFormatTest, RendersTheRecord) {
  ASSERT_EQ(zlog_init(LogConfig(GetParam().pattern, "HAL_ERROR").c_str()), 0);
  Log(zlog_get_category("zuskux"), kHalError, "the text");
  EXPECT_EQ(ReadLog(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, ZlogFormatTest,
    testing::Values(FormatCase{"Literal", "some # text", "some # text"},
                    FormatCase{"Level", "%V", "HAL_ERROR"}, FormatCase{"Category", "%c", "zuskux"},
                    FormatCase{"Path", "%F", "src/dest_vlan/hai/hai_dest_vlan"},
                    FormatCase{"Line", "%L", "42"},
                    FormatCase{"Function", "%U", "CreateDestination"},
                    FormatCase{"Text", "%m", "the text"}, FormatCase{"NewLine", "%n", "\n"},
                    FormatCase{"Adjacent", "(%c:%F:%L) - %m%n",
                               "(zuskux:src/dest_vlan/hai/hai_dest_vlan:42) - the text\n"},
                    FormatCase{"WidthReached", "[%-9V]", "[HAL_ERROR]"}),
    [](const auto& test) { return test.param.name; });

TEST_F(ZlogTest, PadsTheLevelToNineCharacters) {
  ASSERT_EQ(zlog_init(LogConfig("[%-9V]").c_str()), 0);
  Log(zlog_get_category("zuskux"), kInfo, "text");
  EXPECT_EQ(ReadLog(), "[INFO     ]");
}

TEST_F(ZlogTest, ShowsTheLocalTimeOfTheCall) {
  const TimeZone zone("TST-5:30");
  ASSERT_EQ(zlog_init(LogConfig("%d(%F %T)|%ms|%us%n").c_str()), 0);
  const std::string first = LocalTime();
  Log(zlog_get_category("zuskux"), kInfo, "text");
  const std::string last = LocalTime();

  const std::string log = ReadLog();
  std::smatch fields;
  ASSERT_TRUE(std::regex_match(log, fields, std::regex("([^|]+)\\|(\\d{3})\\|(\\d{6})\n"))) << log;
  EXPECT_GE(fields[1].str(), first);
  EXPECT_LE(fields[1].str(), last);
  EXPECT_EQ(fields[3].str().substr(0, 3), fields[2].str());
}

TEST_F(ZlogTest, FractionsOfASecondChange) {
  ASSERT_EQ(zlog_init(LogConfig("%us%n").c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  Log(category, kInfo, "text");
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  Log(category, kInfo, "text");
  const auto lines = Lines(ReadLog());
  ASSERT_EQ(lines.size(), 2U);
  const auto elapsed = (std::stol(lines[1]) - std::stol(lines[0]) + 1'000'000) % 1'000'000;
  EXPECT_GE(elapsed, 2'000);
}

TEST_F(ZlogTest, FilesAreAppendedTo) {
  const auto config = LogConfig("%m%n");
  std::ofstream(folder_.Path("log")) << "before\n";
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  Log(zlog_get_category("zuskux"), kInfo, "after");
  EXPECT_EQ(ReadLog(), "before\nafter\n");
}

TEST_F(ZlogTest, ANewFileIsItsOwnersOnly) {
  ASSERT_EQ(zlog_init(LogConfig("%m%n").c_str()), 0);
  EXPECT_EQ(fs::status(folder_.Path("log")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(ZlogTest, PrintsArguments) {
  ASSERT_EQ(zlog_init(LogConfig("%m%n").c_str()), 0);
  zlog(zlog_get_category("zuskux"), "f", 1, "g", 1, 1, kInfo, "%d|%5.1f|%-4s|%c|%lu|%#x|%%", -7,
       2.25, "ab", 'z', 18446744073709551615UL, 255U);
  EXPECT_EQ(ReadLog(), "-7|  2.2|ab  |z|18446744073709551615|0xff|%\n");
}

TEST_F(ZlogTest, FileAndFunctionEndWhereTheirLengthsSay) {
  ASSERT_EQ(zlog_init(LogConfig("%F %U%n").c_str()), 0);
  zlog(zlog_get_category("zuskux"), "a/bcd/efg", 5, "Function", 4, 1, kInfo, "text");
  EXPECT_EQ(ReadLog(), "a/bcd Func\n");
}

TEST_F(ZlogTest, TextOfAnyLengthIsWhole) {
  ASSERT_EQ(zlog_init(LogConfig("<%m>%n").c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  std::string expected;
  for (const std::size_t size :
       std::vector<std::size_t>{0, 1, 1023, 1024, 1025, 70'000, 3'000'000}) {
    std::string text(size, 'x');
    if (!text.empty()) text.back() = 'y';
    Log(category, kInfo, text);
    expected += '<' + text + ">\n";
  }
  EXPECT_TRUE(ReadLog() == expected);
}

TEST_F(ZlogTest, LineBreaksInTheTextStay) {
  ASSERT_EQ(zlog_init(LogConfig("%m|").c_str()), 0);
  Log(zlog_get_category("zuskux"), kInfo, "one\ntwo\n");
  EXPECT_EQ(ReadLog(), "one\ntwo\n|");
}

TEST_F(ZlogTest, RecordsOfManyThreadsStayWhole) {
  constexpr int kThreads = 8;
  constexpr int kRecords = 200;
  const auto text = [](int thread, int number) {
    return std::to_string(thread) + ' ' + std::to_string(number) + ' ' +
           std::string(2000 + static_cast<std::size_t>(number), static_cast<char>('a' + thread));
  };
  ASSERT_EQ(zlog_init(LogConfig("%m%n").c_str()), 0);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, &text] {
      for (int number = 0; number < kRecords; ++number) {
        Log(zlog_get_category("zuskux"), kInfo, text(thread, number));
      }
    });
  }
  for (auto& thread : threads) thread.join();

  std::vector<int> next(kThreads);
  for (const std::string& line : Lines(ReadLog())) {
    const int thread = line.front() - '0';
    ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
    const int number = next[static_cast<std::size_t>(thread)]++;
    ASSERT_EQ(line, text(thread, number));
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kRecords));
}

TEST_F(ZlogTest, ShippedConfigurationWritesTracesAndErrorsToStderr) {
  ASSERT_EQ(zlog_init(ZUSKUX_ZLOG_CONF), 0);
  auto* const category = zlog_get_category("zuskux");
  EXPECT_EQ(zlog_level_enabled(category, kTrace), 1);
  EXPECT_EQ(zlog_level_enabled(category, kTrace - 1), 0);
  EXPECT_EQ(zlog_level_enabled(zlog_get_category("other"), kError), 0);
  testing::internal::CaptureStderr();
  Log(category, kTrace, "a trace");
  Log(category, kHalError, "an error");
  const auto lines = Lines(testing::internal::GetCapturedStderr());
  ASSERT_EQ(lines.size(), 2U);
  constexpr std::size_t kTimeLength = std::string_view("2025-01-01 00:00:00.000000").size();
  EXPECT_TRUE(std::regex_match(lines[0].substr(0, kTimeLength),
                               std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6})")))
      << lines[0];
  EXPECT_EQ(lines[0].substr(kTimeLength),
            " TRACE     zuskux src/dest_vlan/hai/hai_dest_vlan:42 CreateDestination: a trace");
  EXPECT_EQ(lines[1].substr(kTimeLength),
            " HAL_ERROR zuskux src/dest_vlan/hai/hai_dest_vlan:42 CreateDestination: an error");
}

}  // namespace
