#ifndef ZUSKUX_REFERENCE_SITE_CHECKER_H_
#define ZUSKUX_REFERENCE_SITE_CHECKER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "reference/site/entries.h"
#include "reference/site/site_values.h"
#include "reference/text/diagnostics.h"

namespace reference {

inline constexpr Range kUint32;
inline constexpr Range kIds{1};
/// What the hardware can represent: 20 bits.
inline constexpr Range kLabels{0, (1 << 20) - 1};

/// Reads the fields of a site file's entries and collects the mistakes and warnings. After a
/// mistake, it continues with a value that means none, so that one reading finds all mistakes.
class Checker {
 public:
  void Add(Place place, std::string text) {
    has_mistakes_ = true;
    findings_.Add(place, std::move(text));
  }
  void Warn(Place place, std::string text) {
    findings_.Add(place, std::move(text), Severity::kWarning);
  }

  std::optional<std::uint32_t> Number(const Entry& entry, int field, Range range = kUint32);
  std::uint32_t RequiredNumber(const Entry& entry, int field, Range range = kUint32);
  std::string RequiredText(const Entry& entry, int field);
  std::vector<std::string> Texts(const Entry& entry, int field);
  std::optional<Mac> MacAddress(const Entry& entry, int field);
  /// Like `MacAddress`, and it must be the address of one station.
  std::optional<Mac> NextHopMac(const Entry& entry, int field);
  /// 4 or 16 bytes in network byte order; empty if missing.
  std::string IpAddress(const Entry& entry, int field);

  /// The values of a repeated field whose words are in `table`.
  template <class Value, std::size_t size>
  std::vector<Value> Words(const Entry& entry, int field,
                           const std::array<Keyword<Value>, size>& table) {
    std::vector<Value> values;
    for (int i = 0; i < entry.Count(field); ++i) {
      if (const Keyword<Value>* keyword = FindKeyword(table, entry.Text(field, i))) {
        values.push_back(keyword->value);
      } else {
        std::vector<std::string_view> words;
        words.reserve(size);
        for (const Keyword<Value>& known : table) words.push_back(known.word);
        AddUnknownWord(entry, field, i, words);
      }
    }
    return values;
  }

  bool HasFindings() const { return !findings_.empty(); }
  /// Whether there are findings other than warnings.
  bool HasMistakes() const { return has_mistakes_; }
  /// Mistakes and warnings in file order.
  std::vector<Diagnostic> TakeFindings() { return findings_.Take(); }

 private:
  template <class Value, std::size_t size>
  static const Keyword<Value>* FindKeyword(const std::array<Keyword<Value>, size>& table,
                                           std::string_view word) {
    for (const Keyword<Value>& keyword : table) {
      if (keyword.word == word) return &keyword;
    }
    return nullptr;
  }

  void AddMissing(const Entry& entry, int field, const std::string& remedy);
  void AddUnknownWord(const Entry& entry, int field, int index,
                      const std::vector<std::string_view>& words);
  void CheckText(const Entry& entry, int field, Place place, std::string_view text);

  Diagnostics findings_;
  bool has_mistakes_ = false;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_CHECKER_H_
