#include "hai/attributes.h"

#include <boost/variant/get.hpp>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <type_traits>

#include "dest_manager/attribute.h"
#include "dest_manager/db_objects.h"
#include "tests/support/hai_test.h"

namespace dest_mng {
namespace {

using db::Attribute;
using testing_support::LiveAllocations;

TEST(AttributeTest, IsEmptyAtFirst) {
  const Attribute attribute;

  EXPECT_FALSE(attribute.present);
  EXPECT_EQ(attribute.value.which(), 0);
  EXPECT_EQ(boost::get<int>(attribute.value), 0);
}

TEST(AttributeTest, HasItsAlternativesInOrder) {
  EXPECT_EQ(Attribute(-7).value.which(), 0);
  EXPECT_EQ(Attribute(std::string("a")).value.which(), 1);
  EXPECT_EQ(Attribute(std::uint64_t{7}).value.which(), 2);
  EXPECT_EQ(Attribute(Attribute::Bytes{1, 2}).value.which(), 3);
  static_assert(std::is_trivially_destructible_v<std::uint64_t>);
}

TEST(AttributeTest, IsPresentWhenMadeWithAValue) {
  EXPECT_TRUE(Attribute(0).present);
  EXPECT_TRUE(Attribute(std::string()).present);
}

struct NamedValue {
  const char* name;
  Attribute::Value value;
};

class AttributeLifetimeTest : public ::testing::TestWithParam<NamedValue> {};

TEST_P(AttributeLifetimeTest, ReleasesWhatItHolds) {
  const auto before = LiveAllocations();
  { const std::unique_ptr<Attribute> attribute(new Attribute(GetParam().value)); }

  EXPECT_EQ(LiveAllocations(), before);
}

INSTANTIATE_TEST_SUITE_P(, AttributeLifetimeTest,
                         ::testing::Values(NamedValue{"Integer", 7},
                                           NamedValue{"String", std::string(100, 's')},
                                           NamedValue{"Counter", std::uint64_t{7}},
                                           NamedValue{"Bytes", Attribute::Bytes(100)}),
                         [](const auto& tested) { return std::string(tested.param.name); });

void DestroyCorrupted() {
  Attribute attribute;
  const int alternative = 17;
  std::memcpy(static_cast<void*>(&attribute.value), &alternative, sizeof alternative);
}

TEST(AttributeDeathTest, EndsTheProcessOnAnImpossibleAlternative) {
  EXPECT_DEATH(DestroyCorrupted(), "forced_return.*false");
}

TEST(ReadIntegerTest, ReturnsThePresentInteger) {
  DbHostObject object;
  object.attributes["a"] = Attribute(-1);
  object.attributes["b"] = Attribute(7);

  EXPECT_EQ(ReadInteger(&object, "a"), -1);
  EXPECT_EQ(ReadInteger(&object, "b"), 7);
  EXPECT_EQ(object.attributes.size(), 2U);
}

TEST(ReadIntegerTest, AddsAnEmptyAttributeForAMissingOne) {
  DbHostObject object;

  EXPECT_EQ(ReadInteger(&object, "vlan_dest_id"), 0);
  ASSERT_EQ(object.attributes.size(), 1U);
  const auto& [name, attribute] = *object.attributes.begin();
  EXPECT_EQ(name, "vlan_dest_id");
  EXPECT_FALSE(attribute.present);
  EXPECT_EQ(boost::get<int>(attribute.value), 0);
  EXPECT_TRUE(object.attribute_lists.empty());
}

TEST(ReadIntegerTest, DoesNotReadAnAbsentValue) {
  DbHostObject object;
  Attribute integer(7);
  integer.present = false;
  Attribute text(std::string("text"));
  text.present = false;
  object.attributes["integer"] = integer;
  object.attributes["text"] = text;

  EXPECT_EQ(ReadInteger(&object, "integer"), 0);
  EXPECT_EQ(ReadInteger(&object, "text"), 0);
  EXPECT_EQ(boost::get<std::string>(object.attributes["text"].value), "text");
}

class ReadIntegerThrowTest : public ::testing::TestWithParam<NamedValue> {};

TEST_P(ReadIntegerThrowTest, ThrowsBadGetForAnotherAlternative) {
  DbHostObject object;
  object.attributes["a"] = Attribute(GetParam().value);
  try {
    const int value = ReadInteger(&object, "a");
    ADD_FAILURE() << "read as " << value;
  } catch (const boost::bad_get& error) {
    EXPECT_STREQ(error.what(), "boost::bad_get: failed value get using boost::get");
  }
}

INSTANTIATE_TEST_SUITE_P(, ReadIntegerThrowTest,
                         ::testing::Values(NamedValue{"String", std::string("7")},
                                           NamedValue{"Counter", std::uint64_t{7}},
                                           NamedValue{"Bytes", Attribute::Bytes{7}}),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace dest_mng
