#include "reference/wire/hal_name.h"

#include <gtest/gtest.h>

#include "reference/wire/unix_listener.h"

namespace reference {
namespace {

TEST(HalNameTest, HasThePathOfAUnixSocket) {
  EXPECT_EQ(UnixHalPath("unix:/run/hal.sock"), "/run/hal.sock");
  EXPECT_EQ(UnixHalPath(UnixHalName("a:b")), "a:b");
}

TEST(HalNameTest, UnixAloneIsTheServersDefaultSocket) {
  EXPECT_EQ(UnixHalPath("unix"), DefaultSocketPath("hal.sock"));
}

TEST(HalNameTest, OtherNamesHaveNone) {
  for (const char* const name :
       {"", "unix:", "unixx", "embedded", "tcp:1", "Unix:/a", " unix:/a"}) {
    EXPECT_EQ(UnixHalPath(name), std::nullopt) << name;
  }
}

}  // namespace
}  // namespace reference
