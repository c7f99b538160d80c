/// The HAL's return codes as errors with texts.

#include "reference/hal/hal_code.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace reference {
namespace {

struct TextCase {
  const char* name;
  std::uint32_t code;
  const char* text;
};

class HalCodeTextTest : public testing::TestWithParam<TextCase> {};

TEST_P(HalCodeTextTest, IsForOperators) {
  const auto error = MakeErrorCode(HalReturnCode{GetParam().code});
  EXPECT_EQ(error.message(), GetParam().text);
  EXPECT_EQ(error.category(), HalCategory());
}

INSTANTIATE_TEST_SUITE_P(
    Codes, HalCodeTextTest,
    testing::Values(TextCase{"Success", 0, "success"},
                    TextCase{"MissingReference", 1,
                             "a destination that it refers to does not exist in the HAL"},
                    TextCase{"LabelOutOfRange", 2, "label above 1048575"},
                    TextCase{"Exists", 3, "exists with different content"},
                    TextCase{"NotFound", 4, "not installed"},
                    TextCase{"TableFull", 5, "table full"},
                    TextCase{"BadRequest", 6, "bad request"},
                    TextCase{"NoInterface", 7, "no such interface"},
                    TextCase{"NotSupported", 8, "not supported"},
                    TextCase{"KernelRefused", 9, "refused by the kernel"},
                    TextCase{"ServerLost", 100, "HAL server lost"},
                    TextCase{"QueueFull", 101, "send queue full"},
                    TextCase{"Deadline", 102, "no answer in time"},
                    TextCase{"TooLarge", 103, "request too large"},
                    TextCase{"NoServer", 104, "no HAL server"}, TextCase{"Unknown", 77, "code 77"},
                    TextCase{"LargestUnknown", 4294967295, "code 4294967295"}),
    [](const auto& test) { return test.param.name; });

TEST(HalCodeTest, OnlySuccessConvertsToFalse) {
  EXPECT_FALSE(MakeErrorCode(kHalSuccess));
  EXPECT_TRUE(MakeErrorCode(kHalMissingReference));
  EXPECT_TRUE(MakeErrorCode(HalReturnCode{4294967295}));
}

TEST(HalCodeTest, AnOutcomesTextHasTheReason) {
  EXPECT_EQ(OutcomeText(kHalKernelRefused, ""), "refused by the kernel");
  EXPECT_EQ(OutcomeText(kHalKernelRefused, "no memory"), "refused by the kernel: no memory");
}

TEST(HalCodeTest, CategoryIsOneNamedHal) {
  EXPECT_EQ(std::string(HalCategory().name()), "hal");
  EXPECT_EQ(&HalCategory(), &HalCategory());
}

}  // namespace
}  // namespace reference
