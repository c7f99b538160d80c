#include "reference/wire/socket_access.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <cerrno>
#include <stdexcept>
#include <string>

#include "reference/wire/unix_listener.h"
#include "tests/support/test_folder.h"

namespace reference {
namespace {

constexpr uid_t kOtherUser = 65534;

std::string Complaint(const std::string& path) {
  try {
    CheckSocketAccess(path);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "none";
}

class SocketAccessTest : public ::testing::Test {
 protected:
  // As another user if this one is root, whom no permissions stop; otherwise as the owner, whose
  // permissions were taken away.
  std::string ComplaintOfAnother(const std::string& path) const {
    if (geteuid() != 0) return Complaint(path);
    if (seteuid(kOtherUser) != 0) return "no other user";
    std::string complaint = Complaint(path);
    EXPECT_EQ(seteuid(0), 0);
    return complaint;
  }

  std::string Wanted() const {
    const std::string name = getpwuid(geteuid())->pw_name;
    return "only " + (geteuid() == 0 ? name : "user " + name + " and root") + " may connect to " +
           path_ + "; run this as " + name;
  }

  const TestFolder folder_;
  const std::string path_ = folder_.Path("hal.sock");
  boost::asio::io_context io_;
  const UnixListener listener_{&io_, path_};
};

TEST_F(SocketAccessTest, TheOwnerMayConnect) {
  errno = EACCES;  // of something earlier
  EXPECT_EQ(Complaint(path_), "none");
  EXPECT_EQ(Complaint(folder_.Path("none")), "none");
  EXPECT_EQ(Complaint(folder_.Path("none/none")), "none");
}

TEST_F(SocketAccessTest, OthersAreToldTheOwnerOfTheSocket) {
  if (geteuid() == 0) {
    ASSERT_EQ(chmod(folder_.Path("").c_str(), 0755), 0);
  } else {
    ASSERT_EQ(chmod(path_.c_str(), 0), 0);
  }
  const std::string complaint = ComplaintOfAnother(path_);
  if (complaint == "no other user") GTEST_SKIP() << complaint;
  EXPECT_EQ(complaint, Wanted());
}

TEST_F(SocketAccessTest, OthersAreToldTheOwnerOfTheFolderThatHidesIt) {
  const std::string folder = folder_.Path("");
  ASSERT_EQ(chmod(folder.c_str(), geteuid() == 0 ? 0700 : 0), 0);
  const std::string complaint = ComplaintOfAnother(path_);
  ASSERT_EQ(chmod(folder.c_str(), 0700), 0);
  if (complaint == "no other user") GTEST_SKIP() << complaint;
  EXPECT_EQ(complaint, Wanted());
}

TEST_F(SocketAccessTest, AnOwnerWithoutANameHasANumber) {
  constexpr uid_t kNameless = 54321;
  ASSERT_EQ(getpwuid(kNameless), nullptr);
  ASSERT_EQ(chmod(folder_.Path("").c_str(), 0755), 0);
  if (chown(path_.c_str(), kNameless, kNameless) != 0) GTEST_SKIP() << "needs root";
  EXPECT_EQ(ComplaintOfAnother(path_),
            "only user 54321 and root may connect to " + path_ + "; run this as 54321");
}

}  // namespace
}  // namespace reference
