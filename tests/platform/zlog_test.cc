/// What the logging library does for this system, whichever library stands behind `zlog.h`.

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>
#include <zlog.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#ifndef ZUSKUX_ZLOG_CONF
#error "Define ZUSKUX_ZLOG_CONF as the path of platform/zlog/zuskux.zlog.conf"
#endif

namespace {

namespace fs = std::filesystem;

constexpr int kTrace = 10;
constexpr int kHalError = 12;
constexpr std::string_view kFile = "src/dest_vlan/hai/hai_dest_vlan";
constexpr std::string_view kFunction = "CreateDestination";
constexpr int kLine = 42;

void Log(zlog_category_t* category, int level, const std::string& text) {
  zlog(category, kFile.data(), kFile.size(), kFunction.data(), kFunction.size(), kLine, level, "%s",
       text.c_str());
}

// NOLINTNEXTLINE(cert-dcl50-cpp): makes the va_list that vzlog takes.
__attribute__((format(printf, 2, 3))) void LogThroughVzlog(zlog_category_t* category,
                                                           const char* format, ...) {
  va_list args;
  va_start(args, format);
  vzlog(category, kFile.data(), kFile.size(), kFunction.data(), kFunction.size(), kLine,
        ZLOG_LEVEL_INFO, format, args);
  va_end(args);
}

std::vector<std::string> Lines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// Sets the process's time zone while it lives.
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

/// Of the clock that the log reads; that of `std::time` lags behind it.
std::time_t Now() { return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()); }

/// The local time as `%d` shows it.
std::string LocalTime() {
  const std::time_t now = Now();
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%F %T", &local)};
}

/// Runs each test in a folder of its own, with the library not initialised.
class ZlogTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "zlog_test_XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder_ = name;
  }

  void TearDown() override {
    zlog_fini();
    fs::remove_all(folder_);
  }

  [[nodiscard]] std::string Path(const std::string& name) const { return folder_ / name; }

  /// Writes a configuration in which $LOG stands for the path of "log" and returns its path.
  std::string WriteConfig(const std::string& text, const std::string& name = "zlog.conf") {
    std::ofstream(Path(name)) << std::regex_replace(text, std::regex(R"(\$LOG)"), Path("log"));
    return Path(name);
  }

  [[nodiscard]] std::string Read(const std::string& name) const {
    std::ifstream file(Path(name));
    return {std::istreambuf_iterator<char>(file), {}};
  }

  [[nodiscard]] std::string ReadLog() const { return Read("log"); }

  fs::path folder_;
};

TEST_F(ZlogTest, WithoutInitThereIsNoCategory) { EXPECT_EQ(zlog_get_category("zuskux"), nullptr); }

TEST_F(ZlogTest, ReloadWithoutInitFails) {
  const auto config = WriteConfig("[rules]\n*.* >stdout\n");
  EXPECT_EQ(zlog_reload(config.c_str()), -1);
  EXPECT_EQ(zlog_get_category("zuskux"), nullptr);
}

TEST_F(ZlogTest, SecondInitFailsAndChangesNothing) {
  ASSERT_EQ(zlog_init(WriteConfig("[formats]\nf = \"1 %m%n\"\n[rules]\n*.* \"$LOG\"; f\n").c_str()),
            0);
  const auto other = WriteConfig("[formats]\nf = \"2 %m%n\"\n[rules]\n*.* \"$LOG\"; f\n", "other");
  EXPECT_EQ(zlog_init(other.c_str()), -1);
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO, "text");
  EXPECT_EQ(ReadLog(), "1 text\n");
}

TEST_F(ZlogTest, AfterFiniThereIsNoCategoryUntilTheNextInit) {
  const auto config = WriteConfig("[formats]\nf = \"%m%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  zlog_fini();
  EXPECT_EQ(zlog_get_category("zuskux"), nullptr);
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO, "again");
  EXPECT_EQ(ReadLog(), "again\n");
}

TEST_F(ZlogTest, ACategoryIsOneObject) {
  ASSERT_EQ(zlog_init(WriteConfig("[rules]\n*.* \"$LOG\"\n").c_str()), 0);
  const auto* const category = zlog_get_category("zuskux");
  ASSERT_NE(category, nullptr);
  EXPECT_EQ(zlog_get_category("zuskux"), category);
  EXPECT_NE(zlog_get_category("other"), category);
}

struct LevelCase {
  const char* name;
  const char* selector;
  std::vector<int> enabled;
};

class ZlogLevelTest : public ZlogTest, public testing::WithParamInterface<LevelCase> {};

TEST_P(ZlogLevelTest, RuleLetsExactlyTheseLevelsThrough) {
  const auto config = WriteConfig(
      "[levels]\nTRACE = 10\nHAL_ERROR = 12, LOG_ERR\nTOP = 253\n[formats]\nf = \"%V %v%n\"\n"
      "[rules]\nzuskux." +
      std::string(GetParam().selector) + " \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  const std::map<int, std::string> names = {{kTrace, "TRACE trace\n"},
                                            {kHalError, "HAL_ERROR hal_error\n"},
                                            {ZLOG_LEVEL_DEBUG, "DEBUG debug\n"},
                                            {ZLOG_LEVEL_INFO, "INFO info\n"},
                                            {ZLOG_LEVEL_NOTICE, "NOTICE notice\n"},
                                            {ZLOG_LEVEL_WARN, "WARN warn\n"},
                                            {ZLOG_LEVEL_ERROR, "ERROR error\n"},
                                            {ZLOG_LEVEL_FATAL, "FATAL fatal\n"},
                                            {253, "TOP top\n"}};
  std::vector<int> enabled;
  std::string expected;
  for (const auto& [level, name] : names) {
    if (zlog_level_enabled(category, level) != 0) enabled.push_back(level);
    Log(category, level, "text");
  }
  for (const int level : GetParam().enabled) expected += names.at(level);
  EXPECT_EQ(enabled, GetParam().enabled);
  EXPECT_EQ(ReadLog(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Selectors, ZlogLevelTest,
    testing::Values(LevelCase{"All", "*", {10, 12, 20, 40, 60, 80, 100, 120, 253}},
                    LevelCase{"Lowest", "TRACE", {10, 12, 20, 40, 60, 80, 100, 120, 253}},
                    LevelCase{"Declared", "HAL_ERROR", {12, 20, 40, 60, 80, 100, 120, 253}},
                    LevelCase{"LowerCase", "hal_error", {12, 20, 40, 60, 80, 100, 120, 253}},
                    LevelCase{"Standard", "WARN", {80, 100, 120, 253}},
                    LevelCase{"Highest", "TOP", {253}}, LevelCase{"OnlyThis", "=HAL_ERROR", {12}},
                    LevelCase{"AllButThis", "!HAL_ERROR", {10, 20, 40, 60, 80, 100, 120, 253}}),
    [](const auto& test) { return test.param.name; });

TEST_F(ZlogTest, UndeclaredLevelsAreFilteredByNumber) {
  ASSERT_EQ(
      zlog_init(WriteConfig("[formats]\nf = \"%m%n\"\n[rules]\n*.DEBUG \"$LOG\"; f\n").c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  EXPECT_EQ(zlog_level_enabled(category, 19), 0);
  EXPECT_EQ(zlog_level_enabled(category, 21), 1);
  Log(category, 19, "below");
  Log(category, 21, "above");
  EXPECT_EQ(ReadLog(), "above\n");
}

struct CategoryCase {
  const char* name;
  const char* selector;
  const char* category;
  bool matches;
};

class ZlogCategoryTest : public ZlogTest, public testing::WithParamInterface<CategoryCase> {};

TEST_P(ZlogCategoryTest, RuleMatchesByName) {
  const auto config = WriteConfig("[formats]\nf = \"%c%n\"\n[rules]\n" +
                                  std::string(GetParam().selector) + ".* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category(GetParam().category);
  ASSERT_NE(category, nullptr);
  EXPECT_EQ(zlog_level_enabled(category, ZLOG_LEVEL_INFO), GetParam().matches ? 1 : 0);
  Log(category, ZLOG_LEVEL_INFO, "text");
  EXPECT_EQ(ReadLog(), GetParam().matches ? std::string(GetParam().category) + '\n' : "");
}

INSTANTIATE_TEST_SUITE_P(Selectors, ZlogCategoryTest,
                         testing::Values(CategoryCase{"Any", "*", "zuskux", true},
                                         CategoryCase{"Name", "zuskux", "zuskux", true},
                                         CategoryCase{"OtherName", "zuskux", "other", false},
                                         CategoryCase{"NameIsNoPrefix", "zus", "zuskux", false},
                                         CategoryCase{"Longer", "zuskux", "zuskux_vlan", false},
                                         CategoryCase{"Prefix", "zuskux_", "zuskux_vlan", true},
                                         CategoryCase{"DeepPrefix", "zuskux_", "zuskux_a_b", true},
                                         CategoryCase{"PrefixItself", "zuskux_", "zuskux", true},
                                         CategoryCase{"PrefixOfOther", "zuskux_", "zuskuxes",
                                                      false}),
                         [](const auto& test) { return test.param.name; });

TEST_F(ZlogTest, EveryMatchingRuleWrites) {
  const auto config = WriteConfig(
      "[formats]\na = \"a %m%n\"\nb = \"b %m%n\"\n"
      "[rules]\nzuskux.INFO \"$LOG\"; a\n*.ERROR \"$LOG\"; b\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  Log(category, ZLOG_LEVEL_INFO, "info");
  Log(category, ZLOG_LEVEL_ERROR, "error");
  EXPECT_EQ(ReadLog(), "a info\na error\nb error\n");
}

struct FormatCase {
  const char* name;
  const char* pattern;
  std::string expected;
};

class ZlogFormatTest : public ZlogTest, public testing::WithParamInterface<FormatCase> {};

TEST_P(ZlogFormatTest, RendersTheRecord) {
  const auto config =
      WriteConfig("[levels]\nHAL_ERROR = 12\n[formats]\nf = \"" + std::string(GetParam().pattern) +
                  "\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  Log(zlog_get_category("zuskux"), kHalError, "the text");
  EXPECT_EQ(ReadLog(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, ZlogFormatTest,
    testing::Values(
        FormatCase{"Literal", "some # text", "some # text"}, FormatCase{"Level", "%V", "HAL_ERROR"},
        FormatCase{"LowerCaseLevel", "%v", "hal_error"}, FormatCase{"Category", "%c", "zuskux"},
        FormatCase{"Path", "%F", "src/dest_vlan/hai/hai_dest_vlan"},
        FormatCase{"FileName", "%f", "hai_dest_vlan"}, FormatCase{"Line", "%L", "42"},
        FormatCase{"Function", "%U", "CreateDestination"}, FormatCase{"Text", "%m", "the text"},
        FormatCase{"NewLine", "%n", "\n"}, FormatCase{"Percent", "%%", "%"},
        FormatCase{"Process", "%p", std::to_string(getpid())},
        FormatCase{"Adjacent", "(%c:%F:%L) - %m%%s%n",
                   "(zuskux:src/dest_vlan/hai/hai_dest_vlan:42) - the text%s\n"},
        FormatCase{"TimeOfOneField", "%d(%%)", "%"},
        FormatCase{"RightJustified", "[%12V]", "[   HAL_ERROR]"},
        FormatCase{"LeftJustified", "[%-12V]", "[HAL_ERROR   ]"},
        FormatCase{"WidthExceeded", "[%5V]", "[HAL_ERROR]"},
        FormatCase{"NumberRightJustified", "[%5L]", "[   42]"},
        FormatCase{"CutOff", "[%.3V]", "[HAL]"},
        FormatCase{"CutOffNotNeeded", "[%.20V]", "[HAL_ERROR]"},
        FormatCase{"CutOffThenJustified", "[%-6.3V]", "[HAL   ]"}),
    [](const auto& test) { return test.param.name; });

TEST_F(ZlogTest, ShowsTheLocalTimeOfTheCall) {
  const TimeZone zone("TST-5:30");
  const auto config =
      WriteConfig("[formats]\nf = \"%d|%d(%F %T)|%d(%s)|%ms|%us%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  const std::string first = LocalTime();
  const std::time_t first_second = Now();
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO, "text");
  const std::time_t last_second = Now();
  const std::string last = LocalTime();

  const std::string log = ReadLog();
  std::smatch fields;
  ASSERT_TRUE(std::regex_match(log, fields,
                               std::regex("([^|]+)\\|([^|]+)\\|(\\d+)\\|(\\d{3})\\|(\\d{6})\n")))
      << log;
  EXPECT_GE(fields[1].str(), first);
  EXPECT_LE(fields[1].str(), last);
  EXPECT_EQ(fields[2], fields[1]);
  EXPECT_GE(std::stol(fields[3]), first_second);
  EXPECT_LE(std::stol(fields[3]), last_second);
  EXPECT_EQ(fields[5].str().substr(0, 3), fields[4].str());
}

TEST_F(ZlogTest, FractionsOfASecondChange) {
  const auto config = WriteConfig("[formats]\nf = \"%us%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  Log(category, ZLOG_LEVEL_INFO, "text");
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  Log(category, ZLOG_LEVEL_INFO, "text");
  const auto lines = Lines(ReadLog());
  ASSERT_EQ(lines.size(), 2U);
  const auto elapsed = (std::stol(lines[1]) - std::stol(lines[0]) + 1'000'000) % 1'000'000;
  EXPECT_GE(elapsed, 2'000);
}

TEST_F(ZlogTest, ShowsTheThread) {
  const auto config = WriteConfig("[formats]\nf = \"%t %T%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  const auto expected = [] {
    std::ostringstream text;
    text << "0x" << std::hex << static_cast<unsigned>(pthread_self()) << ' ' << std::dec
         << pthread_self();
    return text.str();
  };
  auto* const category = zlog_get_category("zuskux");
  std::vector<std::string> threads = {expected()};
  Log(category, ZLOG_LEVEL_INFO, "text");
  std::thread([&] {
    threads.push_back(expected());
    Log(category, ZLOG_LEVEL_INFO, "text");
  }).join();
  EXPECT_EQ(Lines(ReadLog()), threads);
}

TEST_F(ZlogTest, DefaultFormatWithoutADeclaration) {
  ASSERT_EQ(zlog_init(WriteConfig("[rules]\n*.* \"$LOG\"\n").c_str()), 0);
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO, "text");
  const std::string log = ReadLog();
  EXPECT_TRUE(std::regex_match(
      log, std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d INFO \\[" +
                      std::to_string(getpid()) + ":src/dest_vlan/hai/hai_dest_vlan:42\\] text\n")))
      << log;
}

TEST_F(ZlogTest, GlobalSettingsAreRead) {
  const auto config = WriteConfig(
      "# comment\n\n[global]\nstrict init = true\nbuffer min = 1024\nbuffer max = 2MB\n"
      "file perms = 640\nfsync period = 1K\nreload conf period = 1M\n"
      "default format = \"%V:%m%n\"\n[rules]\n*.* \"$LOG\"\n*.* \"$LOG\";\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO, "text");
  EXPECT_EQ(ReadLog(), "INFO:text\nINFO:text\n");
}

TEST_F(ZlogTest, StandardStreams) {
  const auto config = WriteConfig(
      "[formats]\nout = \"out %m%n\"\nerr = \"err %m%n\"\n"
      "[rules]\n*.INFO >stdout; out\n*.ERROR >stderr; err\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  Log(category, ZLOG_LEVEL_INFO, "info");
  Log(category, ZLOG_LEVEL_ERROR, "error");
  const std::string standard_output = testing::internal::GetCapturedStdout();
  const std::string standard_error = testing::internal::GetCapturedStderr();
  EXPECT_EQ(standard_output, "out info\nout error\n");
  EXPECT_EQ(standard_error, "err error\n");
}

TEST_F(ZlogTest, FilesAreAppendedTo) {
  std::ofstream(Path("log")) << "before\n";
  const auto config = WriteConfig("[formats]\nf = \"%m%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO, "after");
  EXPECT_EQ(ReadLog(), "before\nafter\n");
}

TEST_F(ZlogTest, PrintsArguments) {
  const auto config = WriteConfig("[formats]\nf = \"%m%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  zlog(category, "f", 1, "g", 1, 1, ZLOG_LEVEL_INFO, "%d|%5.1f|%-4s|%c|%lu|%#x|%%", -7, 2.25, "ab",
       'z', 18446744073709551615UL, 255U);
  LogThroughVzlog(category, "%s=%u", "db_id", 4294967295U);
  EXPECT_EQ(ReadLog(), "-7|  2.2|ab  |z|18446744073709551615|0xff|%\ndb_id=4294967295\n");
}

TEST_F(ZlogTest, FileAndFunctionEndWhereTheirLengthsSay) {
  const auto config = WriteConfig("[formats]\nf = \"%F %f %U%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  zlog(zlog_get_category("zuskux"), "a/bcd/efg", 5, "Function", 4, 1, ZLOG_LEVEL_INFO, "text");
  EXPECT_EQ(ReadLog(), "a/bcd bcd Func\n");
}

TEST_F(ZlogTest, TextOfAnyLengthIsWhole) {
  const auto config = WriteConfig(
      "[global]\nbuffer max = 0\n[formats]\nf = \"<%m>%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  std::string expected;
  for (const std::size_t size :
       std::vector<std::size_t>{0, 1, 499, 500, 501, 1023, 1024, 1025, 70'000, 3'000'000}) {
    std::string text(size, 'x');
    if (!text.empty()) text.back() = 'y';
    LogThroughVzlog(category, "%s", text.c_str());
    expected += '<' + text + ">\n";
  }
  EXPECT_TRUE(ReadLog() == expected);
}

TEST_F(ZlogTest, LineBreaksInTheTextStay) {
  const auto config = WriteConfig("[formats]\nf = \"%m|\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO, "one\ntwo\n");
  EXPECT_EQ(ReadLog(), "one\ntwo\n|");
}

TEST_F(ZlogTest, ReloadAppliesTheNewConfigurationToKnownCategories) {
  const auto config = WriteConfig("[formats]\nf = \"%m%n\"\n[rules]\n*.ERROR \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  Log(category, ZLOG_LEVEL_INFO, "left out");

  WriteConfig("[formats]\nf = \"new %m%n\"\n[rules]\nzuskux.INFO \"$LOG\"; f\n");
  ASSERT_EQ(zlog_reload(nullptr), 0);
  EXPECT_EQ(zlog_level_enabled(category, ZLOG_LEVEL_INFO), 1);
  Log(category, ZLOG_LEVEL_INFO, "same path");

  const auto other = WriteConfig("[rules]\nother.* \"$LOG\"\n", "other.conf");
  ASSERT_EQ(zlog_reload(other.c_str()), 0);
  EXPECT_EQ(zlog_level_enabled(category, ZLOG_LEVEL_FATAL), 0);
  Log(category, ZLOG_LEVEL_FATAL, "left out");

  WriteConfig("[formats]\nf = \"last %m%n\"\n[rules]\nzuskux.INFO \"$LOG\"; f\n", "other.conf");
  ASSERT_EQ(zlog_reload(nullptr), 0);
  Log(category, ZLOG_LEVEL_INFO, "last path");
  EXPECT_EQ(ReadLog(), "new same path\nlast last path\n");
}

TEST_F(ZlogTest, ReloadOpensFilesAnew) {
  const auto config = WriteConfig("[formats]\nf = \"%m%n\"\n[rules]\n*.* \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  Log(category, ZLOG_LEVEL_INFO, "old");
  fs::rename(Path("log"), Path("log.1"));
  ASSERT_EQ(zlog_reload(nullptr), 0);
  Log(category, ZLOG_LEVEL_INFO, "new");
  EXPECT_EQ(Read("log.1"), "old\n");
  EXPECT_EQ(ReadLog(), "new\n");
}

TEST_F(ZlogTest, FailedReloadLeavesTheOldConfiguration) {
  const auto config = WriteConfig("[formats]\nf = \"%m%n\"\n[rules]\n*.INFO \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  const auto bad = WriteConfig("[rules]\n*.NO_SUCH_LEVEL \"$LOG\"\n", "bad.conf");
  EXPECT_EQ(zlog_reload(bad.c_str()), -1);
  EXPECT_EQ(zlog_reload(Path("missing.conf").c_str()), -1);
  EXPECT_EQ(zlog_level_enabled(category, ZLOG_LEVEL_DEBUG), 0);
  Log(category, ZLOG_LEVEL_INFO, "still here");
  ASSERT_EQ(zlog_reload(nullptr), 0) << "the last good path";
  EXPECT_EQ(ReadLog(), "still here\n");
}

TEST_F(ZlogTest, InitOfAMissingFileFails) {
  EXPECT_EQ(zlog_init(Path("missing.conf").c_str()), -1);
  EXPECT_EQ(zlog_get_category("zuskux"), nullptr);
}

/// What thread `thread` writes as its record `number`: several kilobytes of one letter.
std::string ThreadText(int thread, int number) {
  return std::to_string(thread) + ' ' + std::to_string(number) + ' ' +
         std::string(2000 + static_cast<std::size_t>(number), static_cast<char>('a' + thread));
}

TEST_F(ZlogTest, RecordsOfManyThreadsStayWholeAcrossReloads) {
  constexpr int kThreads = 8;
  constexpr int kRecords = 200;
  const auto config = WriteConfig("[formats]\nf = \"%m%n\"\n[rules]\n*.INFO \"$LOG\"; f\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  std::atomic<int> running = kThreads;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([category, thread, &running] {
      for (int number = 0; number < kRecords; ++number) {
        if (zlog_level_enabled(category, ZLOG_LEVEL_INFO) == 0) continue;
        Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO, ThreadText(thread, number));
      }
      --running;
    });
  }
  for (int reload = 0; reload < 1000 && running > 0; ++reload) EXPECT_EQ(zlog_reload(nullptr), 0);
  for (auto& thread : threads) thread.join();

  std::vector<int> next(kThreads);
  for (const std::string& line : Lines(ReadLog())) {
    const int thread = line.front() - '0';
    ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
    const int number = next[static_cast<std::size_t>(thread)]++;
    ASSERT_EQ(line, ThreadText(thread, number));
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kRecords));
}

TEST_F(ZlogTest, ShippedConfigurationWritesTracesAndErrorsToStderr) {
  // A copy: the library may use its configuration as a lock file.
  fs::copy_file(ZUSKUX_ZLOG_CONF, Path("zlog.conf"));
  ASSERT_EQ(zlog_init(Path("zlog.conf").c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  EXPECT_EQ(zlog_level_enabled(category, kTrace), 1);
  EXPECT_EQ(zlog_level_enabled(category, kTrace - 1), 0);
  EXPECT_EQ(zlog_level_enabled(zlog_get_category("other"), ZLOG_LEVEL_FATAL), 0);
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
