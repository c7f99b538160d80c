#include "dest_manager/attribute.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using db::Attribute;
using db::AttributeType;

AttributeType TypeOf(const Attribute& attribute) {
  return static_cast<AttributeType>(attribute.value.which());
}

struct ConstructionCase {
  const char* name;
  Attribute attribute;
  AttributeType type;
  Attribute::Value value;
};

class AttributeConstructionTest : public testing::TestWithParam<ConstructionCase> {};

TEST_P(AttributeConstructionTest, TakesTheTypeOfItsArgument) {
  const Attribute& attribute = GetParam().attribute;
  EXPECT_TRUE(attribute.present);
  EXPECT_EQ(TypeOf(attribute), GetParam().type);
  EXPECT_TRUE(attribute.value == GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    , AttributeConstructionTest,
    testing::Values(
        ConstructionCase{"Integer", Attribute(-7), AttributeType::kInteger, -7},
        ConstructionCase{"Id", Attribute(std::uint32_t{7}), AttributeType::kInteger, 7},
        ConstructionCase{"LargestId", Attribute(std::uint32_t{4294967295}), AttributeType::kInteger,
                         -1},
        ConstructionCase{"Counter", Attribute(std::uint64_t{4294967296}), AttributeType::kCounter,
                         std::uint64_t{4294967296}},
        ConstructionCase{"Literal", Attribute("eth1"), AttributeType::kString, std::string("eth1")},
        ConstructionCase{"String", Attribute(std::string("eth1")), AttributeType::kString,
                         std::string("eth1")},
        ConstructionCase{"Bytes", Attribute(Attribute::Bytes{1, 0, 2}), AttributeType::kBytes,
                         Attribute::Bytes{1, 0, 2}},
        ConstructionCase{"Value", Attribute(Attribute::Value(7)), AttributeType::kInteger, 7}),
    [](const auto& test) { return test.param.name; });

TEST(AttributeTest, IsAbsentUnlessItIsGivenAValue) {
  const Attribute attribute;
  EXPECT_FALSE(attribute.present);
  EXPECT_TRUE(attribute.value == Attribute::Value(0));
}

}  // namespace
