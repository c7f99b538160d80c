/// What only the stand-in of the logging library promises: its messages and its limits.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlog.h>

#include <cerrno>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

void Log(zlog_category_t* category, int level) { zlog(category, "f", 1, "g", 1, 1, level, "text"); }

class ZlogStandinTest : public testing::Test {
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

  std::string WriteConfig(const std::string& text) {
    std::ofstream(Path("zlog.conf")) << text;
    return Path("zlog.conf");
  }

  /// Rules that send everything to the file "log" in `format`.
  std::string WriteLogConfig(const std::string& format) {
    return WriteConfig("[formats]\nf = \"" + format + "\"\n[rules]\n*.* \"" + Path("log") +
                       "\"; f\n");
  }

  [[nodiscard]] std::string ReadLog() const {
    std::ifstream file(Path("log"));
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// What a failing `zlog_init(path)` says.
  static std::string InitError(const char* path) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(zlog_init(path), -1);
    return testing::internal::GetCapturedStderr();
  }

  fs::path folder_;
};

struct ErrorCase {
  const char* name;
  const char* config;
  const char* what;       ///< The message after "zlog: <path>".
  const char* form = "";  ///< The end of the message, where several cases share it.
};

class ZlogConfigErrorTest : public ZlogStandinTest,
                            public testing::WithParamInterface<ErrorCase> {};

TEST_P(ZlogConfigErrorTest, NamesThePlaceAndTheRemedy) {
  const auto config = WriteConfig(GetParam().config);
  EXPECT_EQ(InitError(config.c_str()),
            "zlog: " + config + GetParam().what + GetParam().form + "\n");
  EXPECT_EQ(zlog_get_category("zuskux"), nullptr);
}

constexpr const char* kSections =
    " is unknown, repeated or out of order; use [global], [levels], [formats] and [rules], each at "
    "most once, in this order";
constexpr const char* kGlobalForm =
    " in [global]; write strict init = true, default format = \"%m%n\", file perms = 640, or a "
    "value for buffer min, buffer max, rotate lock file, fsync period or reload conf period";
constexpr const char* kLevelForm =
    " in [levels]; write TRACE = 10, or with its syslog level: TRACE = 10, LOG_DEBUG";
constexpr const char* kFormatForm = " in [formats]; write name = \"%d %V %m%n\"";
constexpr const char* kRuleForm =
    " in [rules]; write category.LEVEL output; format, where category is *, a name or a prefix_, "
    "LEVEL is *, NAME, =NAME or !NAME, output is >stdout, >stderr or a quoted path without %, and "
    "\"; format\" may be left out";
constexpr const char* kConversions =
    "; use %c %d %d(%F %T) %F %f %L %m %ms %n %p %T %t %U %us %V %v %%, with widths from 1 to 999 "
    "as in %-6V or %.20U";
constexpr const char* kTimes =
    " has no text, over 255 characters, or \"ms\" or \"us\"; write for example %d(%F %T), and "
    "fractions of a second after it: %d(%T).%us";

INSTANTIATE_TEST_SUITE_P(
    Lines, ZlogConfigErrorTest,
    testing::Values(
        ErrorCase{"NoSection", "# c\n\n*.* >stdout\n",
                  ":3: no section; write [rules] or another section's name above"},
        ErrorCase{"UnknownSection", "[filters]\n", ":1: \"[filters]\"", kSections},
        ErrorCase{"UnclosedSection", "[rules\n", ":1: \"[rules\"", kSections},
        ErrorCase{"RepeatedSection", "[rules]\n[rules]\n", ":2: \"[rules]\"", kSections},
        ErrorCase{"SectionsOutOfOrder", "[rules]\n[formats]\n", ":2: \"[formats]\"", kSections},
        ErrorCase{"UnknownKey", "[global]\ncolour = red\n", ":2: \"colour = red\"", kGlobalForm},
        ErrorCase{"LenientInit", "[global]\nstrict init = false\n", ":2: \"strict init = false\"",
                  kGlobalForm},
        ErrorCase{"NoValue", "[global]\nbuffer max\n", ":2: \"buffer max\"", kGlobalForm},
        ErrorCase{"DefaultFormatUnquoted", "[global]\ndefault format = %m%n\n",
                  ":2: \"default format = %m%n\"", kGlobalForm},
        ErrorCase{"PermissionsNotOctal", "[global]\nfile perms = 680\n", ":2: \"file perms = 680\"",
                  kGlobalForm},
        ErrorCase{"DefaultFormatWrong", "[global]\ndefault format = \"%q\"\n",
                  ":2: no conversion at \"%q\"", kConversions},
        ErrorCase{"LevelWithoutNumber", "[levels]\nTRACE\n", ":2: \"TRACE\"", kLevelForm},
        ErrorCase{"LevelNegative", "[levels]\nTRACE = -1\n", ":2: \"TRACE = -1\"", kLevelForm},
        ErrorCase{"LevelSyslogName", "[levels]\nTRACE = 1, DEBUG\n", ":2: \"TRACE = 1, DEBUG\"",
                  kLevelForm},
        ErrorCase{"LevelTooSmall", "[levels]\nTRACE = 0\n",
                  ":2: level 0 is out of range; use a number from 1 to 253"},
        ErrorCase{"LevelTooLarge", "[levels]\nTRACE = 254\n",
                  ":2: level 254 is out of range; use a number from 1 to 253"},
        ErrorCase{"LevelNumberTwice", "[levels]\nTRACE = 10\nFINE = 10\n",
                  ":3: the name or the number of level FINE = 10 is in use; use others"},
        ErrorCase{"LevelNameTwice", "[levels]\nTRACE = 10\ntrace = 11\n",
                  ":3: the name or the number of level TRACE = 11 is in use; use others"},
        ErrorCase{"LevelOfTheLibrary", "[levels]\nDEBUG = 11\n",
                  ":2: the name or the number of level DEBUG = 11 is in use; use others"},
        ErrorCase{"FormatUnquoted", "[formats]\nf = %m%n\n", ":2: \"f = %m%n\"", kFormatForm},
        ErrorCase{"FormatQuotedTwice", "[formats]\nf = \"%m\" \"%n\"\n",
                  ":2: \"f = \"%m\" \"%n\"\"", kFormatForm},
        ErrorCase{"FormatTwice", "[formats]\nf = \"%m\"\nf = \"%n\"\n",
                  ":3: format \"f\" is declared twice; use another name"},
        ErrorCase{"ConversionUnknown", "[formats]\nf = \"%m %q %n\"\n",
                  ":2: no conversion at \"%q %n\"", kConversions},
        ErrorCase{"ConversionMissing", "[formats]\nf = \"100%\"\n", ":2: no conversion at \"%\"",
                  kConversions},
        ErrorCase{"ConversionWidthTooLarge", "[formats]\nf = \"%1000V\"\n",
                  ":2: no conversion at \"%1000V\"", kConversions},
        ErrorCase{"ConversionWidthZero", "[formats]\nf = \"%05L\"\n",
                  ":2: no conversion at \"%05L\"", kConversions},
        ErrorCase{"TimeUnclosed", "[formats]\nf = \"%d(%F %m%n\"\n",
                  ":2: no conversion at \"%d(%F %m%n\"", kConversions},
        ErrorCase{"TimeTooLong", "[formats]\nf = \"%d(%300Y)\"\n", ":2: %d(%300Y)", kTimes},
        ErrorCase{"TimeWithMilliseconds", "[formats]\nf = \"%d(%T.ms)\"\n", ":2: %d(%T.ms)",
                  kTimes},
        ErrorCase{"RuleWithoutLevel", "[rules]\nzuskux >stdout\n", ":2: \"zuskux >stdout\"",
                  kRuleForm},
        ErrorCase{"RuleWithoutOutput", "[rules]\n*.*\n", ":2: \"*.*\"", kRuleForm},
        ErrorCase{"RuleOutput", "[rules]\n*.* >syslog, LOG_USER\n", ":2: \"*.* >syslog, LOG_USER\"",
                  kRuleForm},
        ErrorCase{"RuleRotation", "[rules]\n*.* \"log\", 10MB\n", ":2: \"*.* \"log\", 10MB\"",
                  kRuleForm},
        ErrorCase{"RulePathPattern", "[rules]\n*.* \"%c.log\"\n", ":2: \"*.* \"%c.log\"\"",
                  kRuleForm},
        ErrorCase{"RuleUnmatchedCategory", "[rules]\n!.* >stdout\n", ":2: \"!.* >stdout\"",
                  kRuleForm},
        ErrorCase{"RuleNotAnyLevel", "[rules]\n*.=* >stdout\n", ":2: \"*.=* >stdout\"", kRuleForm},
        ErrorCase{"RuleLevel", "[rules]\n*.TRACE >stdout\n",
                  ":2: level \"TRACE\" is not declared; declare it in [levels]"},
        ErrorCase{"RuleFormat", "[rules]\n*.* >stdout; f\n",
                  ":2: format \"f\" is not declared; declare it in [formats]"},
        ErrorCase{
            "RuleDirectory", "[rules]\n*.* >stdout\n*.* \"/\"\n*.* >stderr\n",
            ":3: cannot open \"/\" (Is a directory); name a file that this process may append "
            "to"}),
    [](const auto& test) { return test.param.name; });

TEST_F(ZlogStandinTest, LineTooLong) {
  const auto config = WriteConfig("[formats]\nf = \"" + std::string(4096, 'x') + "\"\n");
  EXPECT_EQ(InitError(config.c_str()),
            "zlog: " + config + ":2: line too long; use at most 4096 characters\n");
}

TEST_F(ZlogStandinTest, LongestLine) {
  const std::string text(4090, 'x');
  ASSERT_EQ(zlog_init(WriteConfig("[formats]\nf = \"" + text + "\"\n[rules]\n*.* \"" + Path("log") +
                                  "\"; f\n")
                          .c_str()),
            0);
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO);
  EXPECT_EQ(ReadLog(), text);
}

TEST_F(ZlogStandinTest, UnreadableConfiguration) {
  const auto missing = Path("missing.conf");
  EXPECT_EQ(
      InitError(missing.c_str()),
      "zlog: " + missing + ": cannot be read (No such file or directory); name a readable file\n");
  EXPECT_EQ(
      InitError(folder_.c_str()),
      "zlog: " + folder_.string() + ": cannot be read (Is a directory); name a readable file\n");
}

TEST_F(ZlogStandinTest, ConfigurationFromTheEnvironment) {
  unsetenv("ZLOG_CONF_PATH");
  EXPECT_EQ(InitError(nullptr),
            "zlog: no configuration; give zlog_init a path or set ZLOG_CONF_PATH\n");
  const auto config = WriteLogConfig("%m%n");
  setenv("ZLOG_CONF_PATH", config.c_str(), 1);
  EXPECT_EQ(zlog_init(nullptr), 0);
  unsetenv("ZLOG_CONF_PATH");
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO);
  EXPECT_EQ(ReadLog(), "text\n");
}

TEST_F(ZlogStandinTest, InitAndReloadOutOfPlace) {
  const auto config = WriteLogConfig("%m%n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(zlog_reload(config.c_str()), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "zlog: nothing to reload; call zlog_init first\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  EXPECT_EQ(InitError(config.c_str()),
            "zlog: zlog_init was already called; use zlog_reload, or call zlog_fini first\n");
}

TEST_F(ZlogStandinTest, AWrongConfigurationCreatesNoFile) {
  const auto config = WriteConfig("[rules]\n*.* \"" + Path("log") + "\"\nwrong\n");
  InitError(config.c_str());
  EXPECT_FALSE(fs::exists(Path("log")));
}

TEST_F(ZlogStandinTest, FilePermissions) {
  const auto permissions = [this](const std::string& global) {
    fs::remove(Path("log"));
    const auto config = WriteConfig(global + "[rules]\n*.* \"" + Path("log") + "\"\n");
    const mode_t mask = umask(0);
    EXPECT_EQ(zlog_init(config.c_str()), 0);
    umask(mask);
    zlog_fini();
    return static_cast<unsigned>(fs::status(Path("log")).permissions());
  };
  EXPECT_EQ(permissions(""), 0600U);
  EXPECT_EQ(permissions("[global]\nfile perms = 644\n"), 0644U);
}

TEST_F(ZlogStandinTest, UndeclaredLevelsAreUnknown) {
  ASSERT_EQ(zlog_init(WriteLogConfig("%V %v%n").c_str()), 0);
  Log(zlog_get_category("zuskux"), 7);
  EXPECT_EQ(ReadLog(), "UNKNOWN unknown\n");
}

TEST_F(ZlogStandinTest, LevelsOutOfRangeWriteNothing) {
  ASSERT_EQ(zlog_init(WriteLogConfig("%m%n").c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  for (const int level : {-2147483647 - 1, -1, 0, 254, 255, 256, 2147483647}) {
    EXPECT_EQ(zlog_level_enabled(category, level), 0) << level;
    Log(category, level);
  }
  EXPECT_EQ(ReadLog(), "");
  for (const int level : {1, 253}) {
    EXPECT_EQ(zlog_level_enabled(category, level), 1) << level;
    Log(category, level);
  }
  EXPECT_EQ(ReadLog(), "text\ntext\n");
}

TEST_F(ZlogStandinTest, NullCategoriesAndNames) {
  Log(nullptr, ZLOG_LEVEL_INFO);
  EXPECT_EQ(zlog_level_enabled(nullptr, ZLOG_LEVEL_INFO), 0);
  ASSERT_EQ(zlog_init(WriteLogConfig("%m%n").c_str()), 0);
  EXPECT_EQ(zlog_get_category(nullptr), nullptr);
  EXPECT_EQ(zlog_level_enabled(nullptr, ZLOG_LEVEL_INFO), 0);
  Log(nullptr, ZLOG_LEVEL_INFO);
  EXPECT_EQ(ReadLog(), "");
}

TEST_F(ZlogStandinTest, CategoriesAreSilentAfterFiniAndSpeakAfterTheNextInit) {
  const auto config = WriteLogConfig("%m%n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  zlog_fini();
  zlog_fini();
  EXPECT_EQ(zlog_level_enabled(category, ZLOG_LEVEL_INFO), 0);
  Log(category, ZLOG_LEVEL_INFO);
  EXPECT_EQ(ReadLog(), "");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  EXPECT_EQ(zlog_get_category("zuskux"), category);
  Log(category, ZLOG_LEVEL_INFO);
  EXPECT_EQ(ReadLog(), "text\n");
}

TEST_F(ZlogStandinTest, FilesAreClosed) {
  const auto open_files = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto config = WriteLogConfig("%m%n");
  const auto before = open_files();
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  ASSERT_EQ(zlog_reload(nullptr), 0);
  EXPECT_EQ(open_files(), before + 1);
  zlog_fini();
  EXPECT_EQ(open_files(), before);
}

TEST_F(ZlogStandinTest, RecordsOfManyThreadsStayWholeInAPipe) {
  // A pipe takes records of this size in several steps.
  const auto text = [](int thread) {
    return std::string(100'000, static_cast<char>('a' + thread));
  };
  constexpr int kThreads = 4;
  constexpr int kRecords = 20;
  ASSERT_EQ(mkfifo(Path("log").c_str(), 0600), 0);
  std::string written;
  std::thread reader([&] { written = ReadLog(); });
  const int result = zlog_init(WriteLogConfig("%m%n").c_str());
  std::vector<std::thread> writers;
  writers.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    writers.emplace_back([&text, category = zlog_get_category("zuskux"), thread] {
      for (int record = 0; record < kRecords; ++record) {
        zlog(category, "f", 1, "g", 1, 1, ZLOG_LEVEL_INFO, "%s", text(thread).c_str());
      }
    });
  }
  for (auto& writer : writers) writer.join();
  zlog_fini();
  reader.join();

  EXPECT_EQ(result, 0);
  std::map<std::string, int> records;
  std::istringstream lines(written);
  for (std::string line; std::getline(lines, line);) ++records[line];
  std::map<std::string, int> expected;
  for (int thread = 0; thread < kThreads; ++thread) expected[text(thread)] = kRecords;
  EXPECT_TRUE(records == expected) << records.size() << " different lines";
}

TEST_F(ZlogStandinTest, ErrnoStays) {
  const auto config = WriteConfig("[rules]\n*.* \"/dev/full\"\n");
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  errno = EDOM;
  Log(zlog_get_category("zuskux"), ZLOG_LEVEL_INFO);
  EXPECT_EQ(errno, EDOM);
}

TEST_F(ZlogStandinTest, AFormatThatPrintfRefusesIsTheText) {
  ASSERT_EQ(zlog_init(WriteLogConfig("%m%n").c_str()), 0);
  const wchar_t not_a_character[] = {static_cast<wchar_t>(0x7fffffff), L'\0'};
  zlog(zlog_get_category("zuskux"), "f", 1, "g", 1, 1, ZLOG_LEVEL_INFO, "wide: %ls",
       not_a_character);
  EXPECT_EQ(ReadLog(), "wide: %ls\n");
}

}  // namespace
