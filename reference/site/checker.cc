#include "reference/site/checker.h"

#include <algorithm>

#include "reference/text/printable.h"

namespace reference {

std::optional<std::uint32_t> Checker::Number(const Entry& entry, int field, Range range) {
  if (!entry.Has(field)) return std::nullopt;
  const std::int64_t value = entry.Number(field);
  if (!range.Contains(value)) {
    Add(entry.PlaceOf(field), OutOfRangeText(entry.FieldName(field), value, range));
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(value);
}

std::uint32_t Checker::RequiredNumber(const Entry& entry, int field, Range range) {
  if (!entry.Has(field)) {
    AddMissing(
        entry, field,
        "N with N from " + std::to_string(range.first) + " to " + std::to_string(range.last));
  }
  return Number(entry, field, range).value_or(0);
}

std::string Checker::RequiredText(const Entry& entry, int field) {
  const std::string_view text = entry.Text(field);
  if (text.empty()) AddMissing(entry, field, R"("...")");
  CheckText(entry, field, entry.PlaceOf(field), text);
  return std::string(text);
}

std::vector<std::string> Checker::Texts(const Entry& entry, int field) {
  std::vector<std::string> texts;
  for (int i = 0; i < entry.Count(field); ++i) {
    texts.emplace_back(entry.Text(field, i));
    CheckText(entry, field, entry.PlaceOf(field, i), texts.back());
  }
  return texts;
}

std::optional<Mac> Checker::MacAddress(const Entry& entry, int field) {
  if (!entry.Has(field)) return std::nullopt;
  std::optional<Mac> mac = ParseMac(entry.Text(field));
  if (!mac) {
    Add(entry.PlaceOf(field),
        "bad MAC address " + Quote(entry.Text(field)) +
            R"(; write six hexadecimal pairs with colons, as in "02:00:00:00:01:0a")");
  }
  return mac;
}

std::optional<Mac> Checker::NextHopMac(const Entry& entry, int field) {
  std::optional<Mac> mac = MacAddress(entry, field);
  if (!mac) return mac;
  const auto all = [&mac](std::uint8_t value) {
    return std::all_of(mac->begin(), mac->end(), [value](auto byte) { return byte == value; });
  };
  const char* what = nullptr;
  if (all(0)) {
    what = "is zero";
  } else if (all(0xff)) {
    what = "is the broadcast address";
  } else if ((mac->front() & 1U) != 0) {
    what = "is a multicast address";
  } else {
    return mac;
  }
  Add(entry.PlaceOf(field), entry.FieldName(field) + ' ' + Quote(entry.Text(field)) + ' ' + what +
                                "; give the next hop's own address, whose first byte is even");
  return mac;
}

std::string Checker::IpAddress(const Entry& entry, int field) {
  if (!entry.Has(field)) return {};
  const std::optional<std::string> bytes = ParseIp(entry.Text(field));
  if (!bytes) {
    Add(entry.PlaceOf(field),
        "bad IP address " + Quote(entry.Text(field)) +
            R"(; write IPv4, as in "192.0.2.1", or IPv6, as in "2001:db8::1")");
  }
  return bytes.value_or("");
}

void Checker::AddMissing(const Entry& entry, int field, const std::string& remedy) {
  const std::string& name = entry.FieldName(field);
  Add(entry.PlaceOf(field), entry.Describe() + " has no " + name + "; add " + name + ": " + remedy);
}

void Checker::AddUnknownWord(const Entry& entry, int field, int index,
                             const std::vector<std::string_view>& words) {
  Add(entry.PlaceOf(field, index), "unknown " + entry.FieldName(field) + ' ' +
                                       Quote(entry.Text(field, index)) +
                                       "; use one of: " + Join(words));
}

void Checker::CheckText(const Entry& entry, int field, Place place, std::string_view text) {
  if (IsPrintable(text)) return;
  Add(place, entry.FieldName(field) + ' ' + Quote(text) +
                 " is not plain text; write UTF-8 without control or invisible characters");
}

}  // namespace reference
