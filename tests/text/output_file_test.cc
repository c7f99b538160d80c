#include "reference/text/output_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "tests/support/test_folder.h"

namespace reference {
namespace {

namespace fs = std::filesystem;

class OutputFileTest : public ::testing::Test {
 protected:
  static std::string Read(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::size_t FileCount() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder_.Path("")), fs::directory_iterator()));
  }

  const TestFolder folder_;
  const std::string path_ = folder_.Path("file");
};

TEST_F(OutputFileTest, AppearsWhenItIsWritten) {
  OutputFile file(path_);
  EXPECT_FALSE(fs::exists(path_));
  file.Write("text");
  EXPECT_EQ(Read(path_), "text");
  EXPECT_EQ(FileCount(), 1U);
}

TEST_F(OutputFileTest, LeavesThePreviousFileUntilThen) {
  std::ofstream(path_) << "previous";
  { const OutputFile file(path_); }
  EXPECT_EQ(Read(path_), "previous");
  EXPECT_EQ(FileCount(), 1U);
  OutputFile(path_).Write("next");
  EXPECT_EQ(Read(path_), "next");
  EXPECT_EQ(FileCount(), 1U);
}

TEST_F(OutputFileTest, ReplacesWhatASymbolicLinkNames) {
  std::ofstream(path_) << "previous";
  fs::create_symlink(path_, folder_.Path("link"));
  OutputFile(folder_.Path("link")).Write("next");
  EXPECT_TRUE(fs::is_symlink(folder_.Path("link")));
  EXPECT_EQ(Read(path_), "next");
}

TEST_F(OutputFileTest, WritesToADevice) {
  OutputFile("/dev/null").Write("text");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(OutputFileTest, NamesWhatCannotBeWritten) {
  const auto error = [](const std::string& path) {
    try {
      OutputFile(path).Write("text");
    } catch (const std::runtime_error& thrown) {
      return std::string(thrown.what());
    }
    return std::string();
  };
  const std::string missing = folder_.Path("missing/file");
  EXPECT_EQ(error(missing), "cannot write " + missing +
                                ": No such file or directory; create the folder first with "
                                "mkdir -p " +
                                folder_.Path("missing") + ", or correct the path");
  EXPECT_EQ(error(folder_.Path("")),
            "cannot write " + folder_.Path("") + ": Is a directory; name another file");
  EXPECT_EQ(error("/dev/full"),
            "cannot write /dev/full: No space left on device; free "
            "space there, or name a file elsewhere");
}

TEST_F(OutputFileTest, LeavesNothingWhenTheFileCannotBeReplaced) {
  {
    OutputFile file(path_);
    fs::create_directory(path_);
    EXPECT_THROW(file.Write("text"), std::runtime_error);
  }
  EXPECT_EQ(FileCount(), 1U);
  fs::create_directory(folder_.Path("gone"));
  OutputFile file(folder_.Path("gone/file"));
  fs::remove(folder_.Path("gone"));
  EXPECT_THROW(file.Write("text"), std::runtime_error);
}

}  // namespace
}  // namespace reference
