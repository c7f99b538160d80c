#include "reference/text/json_text.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace reference {
namespace {

TEST(JsonTextTest, EscapesWhatIsNotPrintableAscii) {
  const nlohmann::ordered_json json = {{"a\u009b", "\x1b\x7fü\u202e"}};
  EXPECT_EQ(JsonText(json, -1), R"({"a\u009b":"\u001b\u007f\u00fc\u202e"})");
  EXPECT_EQ(nlohmann::ordered_json::parse(JsonText(json, 1)), json);
}

TEST(JsonTextTest, ReplacesWhatIsNotUtf8) {
  EXPECT_EQ(JsonText(nlohmann::ordered_json{{"a", "\xff"}}, -1), R"({"a":"\ufffd"})");
}

}  // namespace
}  // namespace reference
