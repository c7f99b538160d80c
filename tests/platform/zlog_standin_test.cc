/// What only the stand-in promises: its error messages, and whole records from several threads.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlog.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/test_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr int kInfo = 40;

void Log(zlog_category_t* category, int level) { zlog(category, "f", 1, "g", 1, 1, level, "text"); }

class ZlogStandinTest : public testing::Test {
 protected:
  ~ZlogStandinTest() override { zlog_fini(); }

  std::string WriteConfig(const std::string& text) const {
    std::ofstream(folder_.Path("zlog.conf")) << text;
    return folder_.Path("zlog.conf");
  }

  std::string LogConfig() const {
    return WriteConfig("[levels]\nLOWEST = 1\n[formats]\nf = \"%m%n\"\n[rules]\nzuskux.LOWEST \"" +
                       folder_.Path("log") + "\"; f\n");
  }

  std::string ReadLog() const {
    std::ifstream file(folder_.Path("log"));
    return {std::istreambuf_iterator<char>(file), {}};
  }

  /// The error message of `zlog_init(path)`.
  static std::string InitError(const std::string& path) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(zlog_init(path.c_str()), -1);
    return testing::internal::GetCapturedStderr();
  }

  const reference::TestFolder folder_;
};

struct ErrorCase {
  const char* name;
  std::string before;
  std::string line;
};

class ZlogConfigErrorTest : public ZlogStandinTest,
                            public testing::WithParamInterface<ErrorCase> {};

TEST_P(ZlogConfigErrorTest, NamesThePlaceAndTheRemedy) {
  const auto& [name, before, line] = GetParam();
  const auto config = WriteConfig(before + line + "\n[rules]\n");
  const auto number = 1 + std::count(before.begin(), before.end(), '\n');
  EXPECT_EQ(
      InitError(config),
      "zlog: " + config + ':' + std::to_string(number) + ": \"" + line +
          "\": write # text, a header of [global], [levels], [formats], [rules] in this "
          "order, or below it: buffer max = 0; NAME = NUMBER; name = \"format\"; "
          "category.LEVEL OUTPUT; format. Numbers are 1 to 253, OUTPUT is >stderr or "
          "\"path\", formats have %d(%F %T) %ms %us %V %-9V %c %F %L %U %m %n, names are new or "
          "declared above\n");
  EXPECT_EQ(zlog_get_category("zuskux"), nullptr);
}

constexpr const char* kRules = "[formats]\nf = \"%m\"\n[rules]\n";

INSTANTIATE_TEST_SUITE_P(
    Lines, ZlogConfigErrorTest,
    testing::Values(ErrorCase{"NoSection", "# c\n\n", "f = \"%m\""},
                    ErrorCase{"UnknownSection", "", "[filters]"},
                    ErrorCase{"UnclosedSection", "", "[rules"},
                    ErrorCase{"RepeatedSection", "[levels]\n", "[levels]"},
                    ErrorCase{"SectionsOutOfOrder", "[formats]\n", "[levels]"},
                    ErrorCase{"CommentTooLong", "", '#' + std::string(1000, 'x')},
                    ErrorCase{"OtherGlobalKey", "[global]\n", "file perms = 640"},
                    ErrorCase{"OtherLimit", "[global]\n", "buffer max = 2MB"},
                    ErrorCase{"LevelWithoutNumber", "[levels]\n", "TRACE"},
                    ErrorCase{"LevelInSmallLetters", "[levels]\n", "trace = 10"},
                    ErrorCase{"LevelNegative", "[levels]\n", "TRACE = -1"},
                    ErrorCase{"LevelWithSyslogLevel", "[levels]\n", "TRACE = 10, LOG_DEBUG"},
                    ErrorCase{"LevelTooSmall", "[levels]\n", "TRACE = 0"},
                    ErrorCase{"LevelTooLarge", "[levels]\n", "TRACE = 254"},
                    ErrorCase{"LevelOfFourDigits", "[levels]\n", "TRACE = 1000"},
                    ErrorCase{"LevelNumberTwice", "[levels]\nTRACE = 10\n", "FINE = 10"},
                    ErrorCase{"LevelNameTwice", "[levels]\nTRACE = 10\n", "TRACE = 11"},
                    ErrorCase{"LevelOfTheLibrary", "[levels]\n", "DEBUG = 11"},
                    ErrorCase{"FormatUnquoted", "[formats]\n", "f = %m%n"},
                    ErrorCase{"FormatUnclosed", "[formats]\n", "f = \"%m%n"},
                    ErrorCase{"FormatEmpty", "[formats]\n", "f = \"\""},
                    ErrorCase{"FormatQuotedTwice", "[formats]\n", "f = \"%m\" \"%n\""},
                    ErrorCase{"FormatTwice", "[formats]\nf = \"%m\"\n", "f = \"%n\""},
                    ErrorCase{"FormatWithAComment", "[formats]\n", "f = \"%m\" # text"},
                    ErrorCase{"ConversionUnknown", "[formats]\n", "f = \"%m %q %n\""},
                    ErrorCase{"ConversionMissing", "[formats]\n", "f = \"100%\""},
                    ErrorCase{"ConversionPercent", "[formats]\n", "f = \"100%%\""},
                    ErrorCase{"ConversionOfTheEnvironment", "[formats]\n", "f = \"%E(HOME)\""},
                    ErrorCase{"PaddedOnTheLeft", "[formats]\n", "f = \"%9V\""},
                    ErrorCase{"PaddedAndCutOff", "[formats]\n", "f = \"%-9.3V\""},
                    ErrorCase{"PaddedTooFar", "[formats]\n", "f = \"%-1000V\""},
                    ErrorCase{"OtherTime", "[formats]\n", "f = \"%d(%T)\""},
                    ErrorCase{"RuleWithoutLevel", kRules, "zuskux >stderr; f"},
                    ErrorCase{"RuleWithoutOutput", kRules, "zuskux.INFO"},
                    ErrorCase{"RuleWithoutFormat", kRules, "zuskux.INFO >stderr"},
                    ErrorCase{"RuleWithAComment", kRules, "zuskux.INFO >stderr; f # text"},
                    ErrorCase{"RuleWithoutABlank", kRules, "zuskux.INFO>stderr; f"},
                    ErrorCase{"RuleForAnyCategory", kRules, "*.INFO >stderr; f"},
                    ErrorCase{"RuleForAnyLevel", kRules, "zuskux.* >stderr; f"},
                    ErrorCase{"RuleForOneLevel", kRules, "zuskux.=INFO >stderr; f"},
                    ErrorCase{"RuleLevelInSmallLetters", kRules, "zuskux.info >stderr; f"},
                    ErrorCase{"RuleOutput", kRules, "zuskux.INFO >stdout; f"},
                    ErrorCase{"RuleSyslog", kRules, "zuskux.INFO >syslog, LOG_USER; f"},
                    ErrorCase{"RuleRotation", kRules, "zuskux.INFO \"log\", 10MB; f"},
                    ErrorCase{"RulePathPattern", kRules, "zuskux.INFO \"%c.log\"; f"},
                    ErrorCase{"RulePathEmpty", kRules, "zuskux.INFO \"\"; f"},
                    ErrorCase{"RulePathUnquoted", kRules, "zuskux.INFO log; f"},
                    ErrorCase{"RuleLevelUndeclared", kRules, "zuskux.TRACE >stderr; f"},
                    ErrorCase{"RuleFormatUndeclared", kRules, "zuskux.INFO >stderr; g"},
                    ErrorCase{"HeaderWithABlank", "", "[levels] "},
                    ErrorCase{"EntryAfterABlank", "[levels]\n", " TRACE = 10"}),
    [](const auto& test) { return test.param.name; });

TEST_F(ZlogStandinTest, UnwritableFile) {
  const auto config = WriteConfig(std::string(kRules) + "zuskux.INFO \"/\"; f\n");
  EXPECT_EQ(InitError(config), "zlog: cannot append to / (Is a directory); name another file\n");
}

TEST_F(ZlogStandinTest, UnreadableConfiguration) {
  for (const std::string& path : {folder_.Path("missing"), folder_.Path(".")}) {
    EXPECT_EQ(InitError(path), "zlog: " + path + ": cannot be read; name a readable file\n");
  }
}

TEST_F(ZlogStandinTest, SecondInit) {
  const auto config = LogConfig();
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  EXPECT_EQ(InitError(config), "zlog: already initialised; call zlog_fini first\n");
}

TEST_F(ZlogStandinTest, LevelsOutOfRangeWriteNothing) {
  ASSERT_EQ(zlog_init(LogConfig().c_str()), 0);
  auto* const category = zlog_get_category("zuskux");
  for (const int level : {INT_MIN, -1, 0, 254, 255, 256, INT_MAX}) {
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

TEST_F(ZlogStandinTest, ANullCategoryWritesNothing) {
  Log(nullptr, kInfo);
  ASSERT_EQ(zlog_init(LogConfig().c_str()), 0);
  EXPECT_EQ(zlog_level_enabled(nullptr, kInfo), 0);
  Log(nullptr, kInfo);
  EXPECT_EQ(ReadLog(), "");
}

TEST_F(ZlogStandinTest, FilesAreClosed) {
  const auto open_files = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto config = LogConfig();
  const auto before = open_files();
  ASSERT_EQ(zlog_init(config.c_str()), 0);
  EXPECT_EQ(open_files(), before + 1);
  zlog_fini();
  EXPECT_EQ(open_files(), before);

  std::ofstream(config, std::ios::app) << "wrong\n";
  InitError(config);
  EXPECT_EQ(open_files(), before);
}

TEST_F(ZlogStandinTest, RecordsOfManyThreadsStayWholeInAPipe) {
  // A pipe takes several writes to accept records of this size.
  const auto text = [](int thread) {
    return std::string(100'000, static_cast<char>('a' + thread));
  };
  constexpr int kThreads = 4;
  constexpr int kRecords = 20;
  ASSERT_EQ(mkfifo(folder_.Path("log").c_str(), 0600), 0);
  std::string written;
  std::thread reader([&] { written = ReadLog(); });
  const int result = zlog_init(LogConfig().c_str());
  std::vector<std::thread> writers;
  writers.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    writers.emplace_back([&text, category = zlog_get_category("zuskux"), thread] {
      for (int record = 0; record < kRecords; ++record) {
        zlog(category, "f", 1, "g", 1, 1, kInfo, "%s", text(thread).c_str());
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

}  // namespace
