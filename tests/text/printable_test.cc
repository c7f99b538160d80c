#include "reference/text/printable.h"

#include <gtest/gtest.h>

#include <string>

namespace reference {
namespace {

using std::string_literals::operator""s;

struct TextCase {
  const char* name;
  std::string text;
  std::string printable;
};

class PrintableTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(PrintableTest, ShowsTheText) { EXPECT_EQ(Printable(GetParam().text), GetParam().printable); }

TEST_P(PrintableTest, LeavesItsOwnTextAlone) {
  EXPECT_EQ(Printable(GetParam().printable), GetParam().printable);
  EXPECT_TRUE(IsPrintable(GetParam().printable));
}

TEST_P(PrintableTest, KnowsWhetherItWouldChangeTheText) {
  EXPECT_EQ(IsPrintable(GetParam().text), GetParam().text == GetParam().printable);
}

std::string CaseName(const ::testing::TestParamInfo<TextCase>& tested) { return tested.param.name; }

INSTANTIATE_TEST_SUITE_P(
    Harmless, PrintableTest,
    ::testing::Values(TextCase{"Nothing", "", ""}, TextCase{"Ascii", "a b~!", "a b~!"},
                      TextCase{"Backslash", R"(a\b)", R"(a\b)"},
                      TextCase{"Quote", R"(a"b)", R"(a"b)"}, TextCase{"Umlaut", "Zürich", "Zürich"},
                      TextCase{"NoBreakSpace", "a\u00a0b", "a\u00a0b"},
                      TextCase{"Hebrew", "שלום", "שלום"},
                      TextCase{"Joiners", "می\u200cخواهم\u200d", "می\u200cخواهم\u200d"},
                      TextCase{"FourBytes", "\U0001f4bb", "\U0001f4bb"}),
    CaseName);

INSTANTIATE_TEST_SUITE_P(Controls, PrintableTest,
                         ::testing::Values(TextCase{"Zero", "a\0b"s, R"(a\x00b)"},
                                           TextCase{"Newline", "a\nb", R"(a\nb)"},
                                           TextCase{"Return", "a\rb", R"(a\rb)"},
                                           TextCase{"Tab", "a\tb", R"(a\tb)"},
                                           TextCase{"Escape", "\x1b[2J", R"(\x1b[2J)"},
                                           TextCase{"LastOfC0", "\x1f", R"(\x1f)"},
                                           TextCase{"Delete", "\x7f", R"(\x7f)"},
                                           TextCase{"FirstOfC1", "\u0080", R"(\u0080)"},
                                           TextCase{"NextLine", "\u0085", R"(\u0085)"},
                                           TextCase{"ControlSequence", "\u009b2J", R"(\u009b2J)"},
                                           TextCase{"LastOfC1", "\u009f", R"(\u009f)"}),
                         CaseName);

INSTANTIATE_TEST_SUITE_P(ReorderingOrInvisible, PrintableTest,
                         ::testing::Values(TextCase{"SoftHyphen", "\u00ad", R"(\u00ad)"},
                                           TextCase{"ArabicLetterMark", "\u061c", R"(\u061c)"},
                                           TextCase{"ZeroWidthSpace", "\u200b", R"(\u200b)"},
                                           TextCase{"LeftToRightMark", "\u200e", R"(\u200e)"},
                                           TextCase{"RightToLeftMark", "\u200f", R"(\u200f)"},
                                           TextCase{"LineSeparator", "\u2028", R"(\u2028)"},
                                           TextCase{"ParagraphSeparator", "\u2029", R"(\u2029)"},
                                           TextCase{"LeftToRightEmbedding", "\u202a", R"(\u202a)"},
                                           TextCase{"RightToLeftEmbedding", "\u202b", R"(\u202b)"},
                                           TextCase{"PopDirection", "\u202c", R"(\u202c)"},
                                           TextCase{"LeftToRightOverride", "\u202d", R"(\u202d)"},
                                           TextCase{"RightToLeftOverride", "a\u202eb",
                                                    R"(a\u202eb)"},
                                           TextCase{"WordJoiner", "\u2060", R"(\u2060)"},
                                           TextCase{"LeftToRightIsolate", "\u2066", R"(\u2066)"},
                                           TextCase{"RightToLeftIsolate", "\u2067", R"(\u2067)"},
                                           TextCase{"FirstStrongIsolate", "\u2068", R"(\u2068)"},
                                           TextCase{"PopIsolate", "\u2069", R"(\u2069)"},
                                           TextCase{"ByteOrderMark", "\ufeff", R"(\ufeff)"},
                                           TextCase{"Annotation", "\ufff9", R"(\ufff9)"},
                                           TextCase{"Tag", "\U000e0041", R"(\U000e0041)"}),
                         CaseName);

INSTANTIATE_TEST_SUITE_P(
    NotUtf8, PrintableTest,
    ::testing::Values(TextCase{"LoneLead", "\xc3", R"(\xc3)"},
                      TextCase{"LeadBeforeLetter", "\xe2\x80z", R"(\xe2\x80z)"},
                      TextCase{"LeadBeforeEscape", "\xe2\x1b", R"(\xe2\x1b)"},
                      TextCase{"LoneTrail", "\x9b", R"(\x9b)"},
                      TextCase{"NoSuchByte", "\xff\xfe", R"(\xff\xfe)"},
                      TextCase{"OverlongNewline", "\xc0\x8a", R"(\xc0\x8a)"},
                      TextCase{"Surrogate", "\xed\xa0\x80", R"(\xed\xa0\x80)"},
                      TextCase{"BeyondUnicode", "\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},
                      TextCase{"UmlautAfterwards", "\xffä", R"(\xffä)"}),
    CaseName);

TEST(PrintableTest, TakesWholeCharactersUpToTheLimit) {
  EXPECT_EQ(Printable("abc", 3), "abc");
  EXPECT_EQ(Printable("abc", 2), "ab");
  EXPECT_EQ(Printable("aäb", 2), "a");
  EXPECT_EQ(Printable("aäb", 3), "aä");
  EXPECT_EQ(Printable("\x1b\x1b", 1), R"(\x1b)");
}

TEST(QuoteTest, EscapesQuotesAndBackslashesToo) {
  EXPECT_EQ(Quote(R"(a"b\c)"), R"("a\"b\\c")");
  EXPECT_EQ(Quote("\u009bZürich\n"), R"("\u009bZürich\n")");
  EXPECT_EQ(Quote("abc", 2), R"("ab")");
}

}  // namespace
}  // namespace reference
