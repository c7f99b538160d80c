#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "reference/site/generate_site.h"
#include "reference/site/site_writer.h"
#include "tests/site/read_site.h"
#include "tests/support/test_folder.h"

namespace reference {
namespace {

namespace fs = std::filesystem;

std::string Contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class GenerateSiteProgramTest : public ::testing::Test {
 protected:
  struct Result {
    int exit_code = -1;
    std::string out;
    std::string err;
  };

  GenerateSiteProgramTest() { fs::create_directory(Target().parent_path()); }

  // In a directory of its own.
  fs::path Target() const { return directory_ / "sites" / "a.txtpb"; }

  Result Run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), GENERATE_SITE);
    return RunCommand(arguments);
  }

  Result RunCommand(std::vector<std::string> command) {
    std::vector<char*> argv;
    argv.reserve(command.size() + 1);
    for (std::string& argument : command) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const std::string out = directory_ / "out";
    const std::string err = directory_ / "err";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), flags, 0600);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(error, 0);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Contents(out), Contents(err)};
  }

  // The number of files in the target's directory.
  std::size_t CountFiles() const {
    const fs::directory_iterator files(Target().parent_path());
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }

 private:
  const TestFolder folder_;
  const fs::path directory_ = folder_.Path("");
};

TEST_F(GenerateSiteProgramTest, WritesTheGeneratedSiteToStandardOutput) {
  const Result result = Run({"--objects", "500", "--seed", "9"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(SiteOf(ParseSite(result.out)), GenerateSite(9, 500));
}

TEST_F(GenerateSiteProgramTest, TheSeedIsOneIfMissing) {
  EXPECT_EQ(Run({"--objects=100"}).out, WriteSite(GenerateSite(1, 100)));
}

TEST_F(GenerateSiteProgramTest, WritesTheGeneratedSiteToAFile) {
  for (const char* objects : {"500", "20"}) {
    const Result result = Run({"--objects", objects, "-o", Target()});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(SiteOf(ReadSiteFile(Target())), GenerateSite(1, std::stoul(objects)));
    EXPECT_EQ(CountFiles(), 1U);
  }
}

TEST_F(GenerateSiteProgramTest, WritesThroughALink) {
  const fs::path link = Target().parent_path() / "link";
  std::ofstream(Target()) << "before";
  fs::create_symlink(Target(), link);
  EXPECT_EQ(Run({"--objects", "20", "-o", link}).exit_code, 0);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(Contents(Target()), WriteSite(GenerateSite(1, 20)));
}

TEST_F(GenerateSiteProgramTest, Help) {
  const Result result = Run({"--help"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(Run({"-h"}).out, result.out);
  EXPECT_EQ(result.out, R"(Usage: zuskux-generate-site --objects N [--seed S] [-o FILE]
Writes a valid pseudo-random site file.

Options:
  --objects N           number of VRFs and destinations, 1 to 10000000
  --seed S (=1)         0 to 4294967295; the same seed gives the same site
  -o [ --output ] FILE  where to write (default: standard output)
  -h [ --help ]         show this help and exit
  --version             show the version and exit

Exit status: 0 written, 1 not written, 2 wrong usage.
)");
}

TEST_F(GenerateSiteProgramTest, Version) {
  const Result result = Run({"--version"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out, "zuskux-generate-site " ZUSKUX_VERSION "\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(GenerateSiteProgramTest, BadArgumentsAreOneLineWithTheRemedy) {
  const struct {
    std::vector<std::string> arguments;
    const char* text;
  } kCases[] = {
      {{}, "--objects is missing; add --objects N"},
      {{"--objects", "0"}, "--objects 0 is out of range; use 1 to 10000000"},
      {{"--objects", "-1"}, "--objects -1 is out of range; use 1 to 10000000"},
      {{"--objects", "10000001"}, "--objects 10000001 is out of range; use 1 to 10000000"},
      {{"--objects", "many"}, "the argument ('many') for option '--objects' is invalid"},
      {{"--objects"}, "the required argument for option '--objects' is missing"},
      {{"--objects", "1", "--seed", "4294967296"},
       "--seed 4294967296 is out of range; use 0 to 4294967295"},
      {{"--objects", "1", "--sede", "1"}, "unrecognised option '--sede'"},
      {{"--objects", "1", "a.txtpb"},
       "'a.txtpb' is not an option; write zuskux-generate-site --objects N [--seed S] [-o FILE]"},
      {{"100"},
       "'100' is not an option; write zuskux-generate-site --objects N [--seed S] [-o FILE]"},
  };
  for (const auto& test : kCases) {
    const Result result = Run(test.arguments);
    EXPECT_EQ(result.exit_code, 2) << test.text;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, std::string("zuskux-generate-site: ") + test.text + "; see --help\n");
  }
}

TEST_F(GenerateSiteProgramTest, APlaceThatCannotBeWrittenIsAnError) {
  const fs::path directory = Target().parent_path();
  const struct {
    std::string path;
    std::string reason;
  } kCases[] = {
      {directory / "missing" / "a.txtpb",
       "No such file or directory; create the folder first with mkdir -p " +
           (directory / "missing").string() + ", or correct the path"},
      {directory, "Is a directory; name another file"},
      {"/dev/full", "No space left on device; free space there, or name a file elsewhere"},
  };
  for (const auto& test : kCases) {
    const Result result = Run({"--objects", "20", "-o", test.path});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "zuskux-generate-site: cannot write " + test.path + ": " + test.reason + '\n');
    EXPECT_EQ(CountFiles(), 0U);
  }
}

TEST_F(GenerateSiteProgramTest, AFailureOfStandardOutputIsAnError) {
  const Result result =
      RunCommand({"/bin/sh", "-c", R"(exec "$0" --objects 1000 > /dev/full)", GENERATE_SITE});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.err,
            "zuskux-generate-site: cannot write standard output: No space left on device; free "
            "space there, or name a file elsewhere\n");
}

// The limit on a file's size, a few KiB here, simulates a full disk.
TEST_F(GenerateSiteProgramTest, AFailureHalfwayLeavesNoNewFileAndTheOldOne) {
  const std::vector<std::string> command = {
      "/bin/sh", "-c", R"(trap '' XFSZ; ulimit -f 8; exec "$0" --objects 1000 -o "$1")",
      GENERATE_SITE, Target()};
  EXPECT_EQ(RunCommand(command).exit_code, 1);
  EXPECT_EQ(CountFiles(), 0U);

  std::ofstream(Target()) << "before";
  const Result result = RunCommand(command);
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.err, "zuskux-generate-site: cannot write " + Target().string() +
                            ": File too large; free space there, or name a file elsewhere\n");
  EXPECT_EQ(Contents(Target()), "before");
  EXPECT_EQ(CountFiles(), 1U);
}

}  // namespace
}  // namespace reference
