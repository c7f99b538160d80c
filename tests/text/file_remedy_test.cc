#include "reference/text/file_remedy.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/test_folder.h"

namespace reference {
namespace {

TEST(FileRemedyTest, ToCreateAFolderOnlyIfItIsMissing) {
  const TestFolder folder;
  EXPECT_EQ(
      FileRemedy(folder.Path("a/b/file"), ENOENT),
      "create the folder first with mkdir -p " + folder.Path("a/b") + ", or correct the path");
  EXPECT_EQ(FileRemedy(folder.Path("file"), ENOENT), "name another file");
  EXPECT_EQ(FileRemedy("file", ENOENT), "name another file");
}

TEST(FileRemedyTest, DependsOnTheError) {
  for (const int error : {EACCES, EPERM, EROFS}) {
    EXPECT_EQ(FileRemedy("file", error), "name a file in a folder that you may write to");
  }
  for (const int error : {ENOSPC, EDQUOT, EFBIG}) {
    EXPECT_EQ(FileRemedy("file", error), "free space there, or name a file elsewhere");
  }
  for (const int error : {EISDIR, ENOTDIR, ENAMETOOLONG, ELOOP}) {
    EXPECT_EQ(FileRemedy("file", error), "name another file");
  }
}

}  // namespace
}  // namespace reference
