// The stand-in for the interface ids: its answers for known and unknown lim ids.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "interface_ids/interface_table.h"
#include "interface_ids/lim_id.h"

namespace interface_ids {
namespace {

class InterfaceIdsTest : public ::testing::Test {
 protected:
  InterfaceIdsTest() { InterfaceTable::Global().Set(7, {"eth3", 2, 0x01000103}); }
  ~InterfaceIdsTest() override { InterfaceTable::Global().Clear(); }

  // The caller's previous value.
  std::uint8_t type_ = 0xAA;
  std::uint32_t ifindex_ = 0xAAAAAAAA;
  std::array<char, 64> name_ = {"before"};
};

TEST_F(InterfaceIdsTest, KnowsTheInterfacesOfTheTable) {
  EXPECT_EQ(limid_to_type(7, &type_), 0);
  EXPECT_EQ(limid_to_ifindex(7, &ifindex_), 0);
  EXPECT_EQ(limid_to_intfname(7, name_.data(), name_.size(), 0), 0);

  EXPECT_EQ(type_, 2);
  EXPECT_EQ(ifindex_, 0x01000103U);
  EXPECT_STREQ(name_.data(), "eth3");
}

TEST_F(InterfaceIdsTest, LeavesTypeAndNameOfAnUnknownInterface) {
  EXPECT_EQ(limid_to_type(8, &type_), -1);
  EXPECT_EQ(limid_to_intfname(8, name_.data(), name_.size(), 0), -1);

  EXPECT_EQ(type_, 0xAA);
  EXPECT_STREQ(name_.data(), "before");
}

TEST_F(InterfaceIdsTest, WritesTheIndexOfAnUnknownInterfaceToo) {
  EXPECT_EQ(limid_to_ifindex(8, &ifindex_), -1);

  EXPECT_EQ(ifindex_, 0U);
}

TEST_F(InterfaceIdsTest, TruncatesANameToItsBuffer) {
  EXPECT_EQ(limid_to_intfname(7, name_.data(), 3, 0), 0);
  EXPECT_STREQ(name_.data(), "et");
  EXPECT_EQ(limid_to_intfname(7, name_.data(), 0, 0), -1);
  EXPECT_STREQ(name_.data(), "et");
}

}  // namespace
}  // namespace interface_ids
