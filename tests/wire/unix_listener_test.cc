#include "reference/wire/unix_listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/system/system_error.hpp>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "reference/server/hal_server.h"
#include "tests/server/raw_client.h"
#include "tests/support/test_folder.h"

namespace reference {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

mode_t ModeOf(const std::string& path) {
  struct stat found {};
  return lstat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : 0;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

class UnixListenerTest : public ::testing::Test {
 protected:
  // What the listener complains of.
  std::string Complaint(const std::string& path) {
    try {
      const UnixListener listener(&io_, path);
    } catch (const boost::system::system_error& error) {
      return error.what();
    }
    return "none";
  }

  TestFolder folder_;
  boost::asio::io_context io_;
};

TEST_F(UnixListenerTest, MakesFolderAndSocketForThisUserOnly) {
  const mode_t before = umask(0);
  const UnixListener listener(&io_, folder_.Path("new/hal.sock"));
  umask(before);
  EXPECT_EQ(ModeOf(folder_.Path("new")), 0700U);
  EXPECT_EQ(ModeOf(folder_.Path("new/hal.sock")), 0600U);
}

TEST_F(UnixListenerTest, LeavesAFolderThatExists) {
  std::filesystem::create_directory(folder_.Path("old"));
  chmod(folder_.Path("old").c_str(), 0755);
  const UnixListener listener(&io_, folder_.Path("old/hal.sock"));
  EXPECT_EQ(ModeOf(folder_.Path("old")), 0755U);
}

TEST_F(UnixListenerTest, RefusesAFolderInWhichOthersCanReplaceTheSocket) {
  const std::string folder = folder_.Path("shared");
  std::filesystem::create_directory(folder);
  chmod(folder.c_str(), 0777);
  EXPECT_THAT(Complaint(folder + "/hal.sock"),
              StartsWith("other users can replace a socket in the folder " + folder));
  EXPECT_FALSE(Exists(folder + "/hal.sock"));

  chmod(folder.c_str(), 0770);
  EXPECT_THAT(Complaint(folder + "/hal.sock"),
              StartsWith("other users can replace a socket in the folder " + folder));
  EXPECT_FALSE(Exists(folder + "/hal.sock"));

  chmod(folder.c_str(), 0777);
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder);
  const std::string complaint = Complaint("hal.sock");
  std::filesystem::current_path(before);
  EXPECT_THAT(complaint, StartsWith("other users can replace a socket in the folder .;"));

  // As in /tmp, only who made a file may replace it.
  chmod(folder.c_str(), 01777);
  EXPECT_EQ(Complaint(folder + "/hal.sock"), "none");
}

TEST_F(UnixListenerTest, RemovesTheSocketAtTheEnd) {
  { const UnixListener listener(&io_, folder_.Path("hal.sock")); }
  EXPECT_FALSE(Exists(folder_.Path("hal.sock")));
}

TEST_F(UnixListenerTest, LeavesWhatHasTakenItsPlace) {
  const std::string path = folder_.Path("hal.sock");
  std::optional<UnixListener> first(std::in_place, &io_, path);
  // A link keeps the first socket's number from being used again.
  std::filesystem::create_hard_link(path, folder_.Path("link"));
  unlink(path.c_str());
  const UnixListener second(&io_, path);
  first.reset();
  EXPECT_TRUE(Exists(path));
  RawClient client(path);
}

TEST_F(UnixListenerTest, ReplacesASocketThatNobodyListensOn) {
  const std::string path = folder_.Path("hal.sock");
  {
    std::optional<UnixListener> dead(std::in_place, &io_, path);
    std::filesystem::create_hard_link(path, folder_.Path("link"));
    dead.reset();
    std::filesystem::rename(folder_.Path("link"), path);
  }
  ASSERT_TRUE(Exists(path));
  EXPECT_THROW(RawClient{path}, std::runtime_error);
  const UnixListener listener(&io_, path);
  RawClient client(path);
}

TEST_F(UnixListenerTest, LeavesALivingServer) {
  const std::string path = folder_.Path("hal.sock");
  const UnixListener listener(&io_, path);
  EXPECT_THAT(Complaint(path), StartsWith("another program listens on " + path));
  RawClient client(path);
}

TEST_F(UnixListenerTest, LeavesWhatIsNoSocket) {
  const std::string path = folder_.Path("file");
  std::ofstream(path) << "precious";
  EXPECT_THAT(Complaint(path), StartsWith(path + " exists and is no socket; remove it"));
  std::string content;
  std::ifstream(path) >> content;
  EXPECT_EQ(content, "precious");
}

TEST_F(UnixListenerTest, NamesTheLimitOfAPath) {
  const std::string base = folder_.Path("");
  const std::string fits = base + std::string(107 - base.size(), 'x');
  EXPECT_EQ(Complaint(fits), "none");
  EXPECT_THAT(Complaint(fits + "x"),
              StartsWith("the socket path is 108 bytes long, at most 107 fit; choose a shorter"));
  EXPECT_THAT(Complaint(""), StartsWith("the socket path is empty; name a file"));
}

TEST_F(UnixListenerTest, NamesAFolderThatItCannotMake) {
  EXPECT_THAT(Complaint(folder_.Path("no/such/hal.sock")),
              HasSubstr("cannot make the folder " + folder_.Path("no/such") + " for the socket"));
}

class DefaultPathTest : public ::testing::Test {
 protected:
  ~DefaultPathTest() override {
    if (before_) {
      setenv("XDG_RUNTIME_DIR", before_->c_str(), 1);
    } else {
      unsetenv("XDG_RUNTIME_DIR");
    }
  }

 private:
  static std::optional<std::string> Runtime() {
    const char* const value = getenv("XDG_RUNTIME_DIR");
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
  }

  const std::optional<std::string> before_ = Runtime();
};

TEST_F(DefaultPathTest, IsUnderTheRuntimeFolder) {
  setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
  EXPECT_EQ(DefaultSocketPath("hal.sock"), "/run/user/7/zuskux/hal.sock");
}

TEST_F(DefaultPathTest, IsInTmpWithoutARuntimeFolder) {
  const std::string expected = "/tmp/zuskux-" + std::to_string(getuid()) + "/hal.sock";
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(DefaultSocketPath("hal.sock"), expected);
  for (const char* const useless : {"", "relative/folder"}) {
    setenv("XDG_RUNTIME_DIR", useless, 1);
    EXPECT_EQ(DefaultSocketPath("hal.sock"), expected);
  }
}

}  // namespace
}  // namespace reference
