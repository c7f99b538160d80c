#include "reference/site/entries.h"

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "reference/site/generate_site.h"
#include "reference/site/site_writer.h"
#include "reference/text/printable.h"
#include "site.pb.h"

namespace reference {
namespace {

/// All that a file says, in one text.
std::string Text(const Entry& entry) {
  const auto* const type =
      site::SiteFile::descriptor()->FindFieldByNumber(entry.kind())->message_type();
  std::string text = entry.Describe();
  for (int i = 0; i < type->field_count(); ++i) {
    const int field = type->field(i)->number();
    for (int j = 0; j < entry.Count(field); ++j) {
      text += ' ' + entry.FieldName(field) + '=' + std::to_string(entry.Number(field)) +
              Quote(entry.Text(field, j));
    }
  }
  return text;
}

/// Collects entries by kind, because the two readings differ in the order of the kinds.
class Collector {
 public:
  EntryUse Use() {
    return [this](const Entry& entry) {
      entries_[entry.kind()] += Text(entry) + '\n';
      return true;
    };
  }

  std::string All(const FileHead& head) const {
    std::string all = head.object_count ? std::to_string(*head.object_count) + '\n' : "";
    for (const auto& [kind, entries] : entries_) all += entries;
    return all;
  }

 private:
  std::map<int, std::string> entries_;
};

std::optional<std::string> ReadPlain(const std::string& text) {
  Collector collector;
  const auto head = ForEachPlainEntry(text, collector.Use());
  if (!head) return std::nullopt;
  return collector.All(*head);
}

std::optional<std::string> Parse(const std::string& text) {
  site::SiteFile file;
  if (!ParseTextFile(text, {"site file", "correct it"}, &file, nullptr).empty()) {
    return std::nullopt;
  }
  Collector collector;
  return collector.All(*ForEachEntry(file, nullptr, collector.Use()));
}

struct TextCase {
  const char* name;
  std::string text;
  bool plain;
};

void PrintTo(const TextCase& text, std::ostream* out) { *out << text.name; }

class PlainEntriesTest : public ::testing::TestWithParam<TextCase> {};

TEST_P(PlainEntriesTest, AreReadLikeTheParserDoes) {
  const auto read = ReadPlain(GetParam().text);
  EXPECT_EQ(read.has_value(), GetParam().plain);
  if (read) {
    EXPECT_EQ(read, Parse(GetParam().text));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, PlainEntriesTest,
    ::testing::Values(
        TextCase{"Nothing", "", true}, TextCase{"Spaces", " \t\r\n", true},
        TextCase{"ObjectCount", "object_count: 3\n", true},
        TextCase{"ObjectCountTwice", "object_count: 3 object_count: 3\n", false},
        TextCase{"EmptyEntry", "vlan {}", true},
        TextCase{"Entries", "vlan { id: 1 name: \"a\" }\nhost{ id: 2 }vrf { id:3}\n", true},
        TextCase{"FieldsInAnyOrder", "vlan { mtu: 9 name: \"a\" id: 1 }", true},
        TextCase{"RepeatedField", "ecmp { member: \"a\" member: \"b\" member: \"\" }", true},
        TextCase{"Utf8", "vlan { name: \"Z\xc3\xbcrich\" }", true},
        TextCase{"NotUtf8", "vlan { name: \"\xff\" }", true},
        TextCase{"Comments", "# a\nvlan { # } \"\n id: 1 #\n } # end", true},
        TextCase{"ZeroInAComment", std::string("# \0\nvlan { }", 12), false},
        TextCase{"GreatestNumber", "vlan { id: 9223372036854775807 }", true},
        TextCase{"TooGreatNumber", "vlan { id: 9223372036854775808 }", false},
        TextCase{"Zero", "vlan { id: 0 }", true},
        TextCase{"NegativeNumber", "vlan { id: -1 }", false},
        TextCase{"OctalNumber", "vlan { id: 010 }", false},
        TextCase{"HexadecimalNumber", "vlan { id: 0x10 }", false},
        TextCase{"Fraction", "vlan { id: 1.5 }", false},
        TextCase{"NumberAtTheNextName", "vlan { id: 1name: \"a\" }", false},
        TextCase{"TextForANumber", "vlan { id: \"1\" }", false},
        TextCase{"NumberForAText", "vlan { name: 1 }", false},
        TextCase{"Escape", R"(vlan { name: "a\"b" })", false},
        TextCase{"SingleQuotes", "vlan { name: 'a' }", false},
        TextCase{"LineBreakInAText", "vlan { name: \"a\nb\" }", false},
        TextCase{"TwoTexts", "vlan { name: \"a\" \"b\" }", false},
        TextCase{"TextWithoutEnd", "vlan { name: \"a", false},
        TextCase{"FieldTwice", "vlan { id: 1 id: 1 }", false},
        TextCase{"List", "ecmp { member: [\"a\", \"b\"] }", false},
        TextCase{"Separator", "vlan { id: 1, mtu: 2 }", false},
        TextCase{"AngleBrackets", "vlan < id: 1 >", false},
        TextCase{"Colon", "vlan: { id: 1 }", false}, TextCase{"NoColon", "vlan { id 1 }", false},
        TextCase{"UnknownField", "vlan { idd: 1 }", false},
        TextCase{"UnknownKind", "vlann { id: 1 }", false}, TextCase{"NoBrace", "vlan id: 1", false},
        TextCase{"NoEnd", "vlan { id: 1", false}, TextCase{"EndTwice", "vlan { id: 1 }}", false}),
    [](const auto& instance) { return std::string(instance.param.name); });

// Sites with mistakes in random places: whatever is read directly, the parser reads alike.
TEST(PlainEntriesTest, AgreeWithTheParserOnRandomTexts) {
  constexpr std::uint32_t kTexts = 4000;
  const std::string characters("{}:\"'\\#,;<>[]-0719ax_. \n\t\r\0\x7f\xc3", 29);
  std::uint32_t plain = 0;
  for (std::uint32_t seed = 0; seed < kTexts; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    std::string text = WriteSite(GenerateSite(seed, 1 + below(12)));
    for (std::size_t left = below(3); left > 0; --left) {
      const std::size_t place = below(text.size());
      const char character = characters[below(characters.size())];
      switch (below(4)) {
        case 0:
          text[place] = character;
          break;
        case 1:
          text.insert(place, 1, character);
          break;
        case 2:
          text.erase(place, 1 + below(4));
          break;
        default:
          text.insert(place, text.substr(below(text.size()), below(20)));
      }
      if (text.empty()) break;
    }
    const auto read = ReadPlain(text);
    if (!read) continue;
    ++plain;
    ASSERT_EQ(read, Parse(text)) << text;
  }
  EXPECT_GT(plain, kTexts / 4);
  EXPECT_LT(plain, kTexts * 3 / 4);
}

TEST(EntriesTest, AreReadUntilTheirUseStops) {
  const std::string text = "vlan { id: 1 } vlan { id: 2 } vlan { id: 3 }";
  std::string ids;
  const EntryUse use = [&ids](const Entry& entry) {
    const std::int64_t id = entry.Number(site::Vlan::kIdFieldNumber);
    ids += std::to_string(id);
    return id != 2;
  };
  EXPECT_FALSE(ForEachPlainEntry(text, use));
  EXPECT_EQ(ids, "12");
  site::SiteFile file;
  ASSERT_TRUE(ParseTextFile(text, {"site file", "correct it"}, &file, nullptr).empty());
  EXPECT_FALSE(ForEachEntry(file, nullptr, use));
  EXPECT_EQ(ids, "1212");
}

/// The estimates by the names of the kinds: "vlan 2 host 1 ".
std::string Estimated(const std::string& text) {
  const EntryCounts counts = EstimateEntries(text);
  std::string estimated;
  for (std::size_t number = 0; number < counts.size(); ++number) {
    if (counts[number] == 0) continue;
    const auto* const kind =
        site::SiteFile::descriptor()->FindFieldByNumber(static_cast<int>(number));
    estimated += kind->name() + ' ' + std::to_string(counts[number]) + ' ';
  }
  return estimated;
}

TEST(EstimateEntriesTest, CountsWhatLooksLikeAnEntry) {
  // So that the limit does not matter.
  const std::string space(100, ' ');
  EXPECT_EQ(Estimated(space), "");
  EXPECT_EQ(Estimated(space + "{ } vlan"), "");
  EXPECT_EQ(Estimated(space + "vlan{"), "vlan 1 ");
  EXPECT_EQ(Estimated("vlan { id: 1 }host\n\t{ }vlan { }" + space), "vlan 2 host 1 ");
  EXPECT_EQ(Estimated("avlan { } vlans { } vlan a {" + space), "");
  EXPECT_EQ(Estimated("# vlan { }\nhost { name: \"ecmp {\" }" + space), "vlan 1 host 1 ecmp 1 ");
}

TEST(EstimateEntriesTest, CountsNoMoreThanFitIntoTheText) {
  const std::string shortest = "ecmp{id:1 name:\"a\"}";
  EXPECT_EQ(Estimated(shortest + shortest), "ecmp 2 ");
  EXPECT_EQ(Estimated("ecmp{ecmp{ecmp{ecmp{ecmp{ecmp{ecmp{ecmp{"), "ecmp 2 ");
  EXPECT_EQ(Estimated("vlan { }"), "");
}

TEST(EstimateEntriesTest, IsExactForAGeneratedSite) {
  const Site site = GenerateSite(1, 500);
  const EntryCounts counts = EstimateEntries(WriteSite(site));
  EXPECT_EQ(counts[site::SiteFile::kInterfaceFieldNumber], site.interfaces.size());
  EXPECT_EQ(counts[site::SiteFile::kVrfFieldNumber], site.vrfs.size());
  EXPECT_EQ(counts[site::SiteFile::kVlanFieldNumber], site.vlans.size());
  EXPECT_EQ(counts[site::SiteFile::kHostFieldNumber], site.hosts.size());
  EXPECT_EQ(counts[site::SiteFile::kMplsFieldNumber], site.mpls.size());
  EXPECT_EQ(counts[site::SiteFile::kEcmpFieldNumber], site.ecmps.size());
}

}  // namespace
}  // namespace reference
