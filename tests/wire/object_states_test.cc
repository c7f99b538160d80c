#include "reference/wire/object_states.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace reference {
namespace {

using std::string_literals::operator""s;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::Optional;

const HalObjectState kBroken{HalKind::kHost, 20, kHalKernelRefused, "no memory"};
const HalObjectState kMended{HalKind::kVrf, 7, kHalSuccess, {}};

// The payload for both: fields 1 to 4 of each object within field 1.
const std::string kPayload =
    "\x0A\x11\x08\x02\x10\x14\x18\x09\x22\x09no memory"
    "\x0A\x02\x10\x07";

TEST(AppendObjectStates, WritesTheGoldenBytes) {
  std::string out = "before";
  AppendObjectStates({kBroken, kMended}, &out);
  EXPECT_EQ(out,
            "before"
            "\x18\x00\x00\x00\x00\x00\x00\x17"s +
                kPayload);
}

TEST(AppendObjectStates, TruncatesAReason) {
  std::string out;
  AppendObjectStates({{HalKind::kHost, 20, kHalKernelRefused, std::string(300, 'x')}}, &out);
  EXPECT_THAT(ParseObjectStates(out.substr(8)),
              Optional(ElementsAre(
                  HalObjectState{HalKind::kHost, 20, kHalKernelRefused, std::string(256, 'x')})));
}

// The default limit of a payload is 64 KiB.
TEST(AppendObjectStates, TheLongestFrameFits) {
  const HalObjectState longest{HalKind::kMpls, 0xFFFFFFFF, kHalKernelRefused,
                               std::string(256, 'x')};
  std::string out;
  AppendObjectStates(std::vector<HalObjectState>(kMaxObjectStates, longest), &out);
  EXPECT_LE(out.size(), 65'536U);
}

TEST(ParseObjectStates, ReadsTheGoldenBytes) {
  EXPECT_THAT(ParseObjectStates(kPayload), Optional(ElementsAre(kBroken, kMended)));
  EXPECT_THAT(ParseObjectStates(""), Optional(ElementsAre()));
}

TEST(ParseObjectStates, RefusesWhatNoServerSends) {
  EXPECT_THAT(ParseObjectStates("\x0A\x7F\x08"), Eq(std::nullopt)) << "truncated";
  EXPECT_THAT(ParseObjectStates("\x0A\x02\x08\x05"), Eq(std::nullopt)) << "kind 5";
  EXPECT_THAT(ParseObjectStates("\x0A\x02\x18\x64"), Eq(std::nullopt)) << "code 100";
}

}  // namespace
}  // namespace reference
