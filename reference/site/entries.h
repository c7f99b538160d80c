#ifndef ZUSKUX_REFERENCE_SITE_ENTRIES_H_
#define ZUSKUX_REFERENCE_SITE_ENTRIES_H_

#include <google/protobuf/message.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reference/text/diagnostics.h"
#include "reference/text/text_file.h"

namespace reference {

/// One entry of a site file: the values of its fields and, if recorded, their places. Identifies
/// fields by number. Refers to what it was read from: the text, or the message and its places.
class Entry {
 public:
  /// Becomes an entry without values of the kind `kind`, a field of the file's message. `places`
  /// are those of its fields, or null.
  void Start(const google::protobuf::FieldDescriptor& kind, const FieldPlaces* places, Place place);
  void Add(int field, std::int64_t number) { values_.at(Index(field)).push_back({number, {}}); }
  void Add(int field, std::string_view text) { values_.at(Index(field)).push_back({0, text}); }

  /// The number of its kind's field in the file's message.
  int kind() const { return kind_->number(); }

  bool Has(int field) const { return Count(field) != 0; }
  /// 0 if missing.
  std::int64_t Number(int field) const { return Has(field) ? First(field).number : 0; }
  /// Empty if missing.
  std::string_view Text(int field) const {
    return Has(field) ? First(field).text : std::string_view();
  }
  int Count(int field) const { return static_cast<int>(values_.at(Index(field)).size()); }
  std::string_view Text(int field, int index) const {
    return values_.at(Index(field)).at(static_cast<std::size_t>(index)).text;
  }

  /// The field's name in the file.
  const std::string& FieldName(int field) const { return Field(field).name(); }
  /// The place of a field's value, or of the entry if the field is missing.
  Place PlaceOf(int field, int index = 0) const;
  /// "vlan", or with its name: "vlan "core-a"".
  std::string Describe() const;

 private:
  struct Value {
    std::int64_t number;
    std::string_view text;
  };

  // More than the greatest field number.
  static constexpr std::size_t kFields = 12;

  static std::size_t Index(int field) { return static_cast<std::size_t>(field); }
  const Value& First(int field) const { return values_.at(Index(field)).front(); }
  const google::protobuf::FieldDescriptor& Field(int field) const {
    return *kind_->message_type()->FindFieldByNumber(field);
  }

  const google::protobuf::FieldDescriptor* kind_ = nullptr;
  const FieldPlaces* places_ = nullptr;
  Place place_;
  // By field number.
  std::array<std::vector<Value>, kFields> values_;
};

/// Called for each entry, which is valid during the call. Returns whether to go on.
using EntryUse = std::function<bool(const Entry& entry)>;

/// What a site file has besides its entries.
struct FileHead {
  std::optional<std::int64_t> object_count;
  Place object_count_place;
};

/// Calls `use` for each entry of a parsed file, by kind and in file order. Returns nothing if `use`
/// did not go on. `places` may be null.
std::optional<FileHead> ForEachEntry(const google::protobuf::Message& file,
                                     const FieldPlaces* places, const EntryUse& use);

/// Reads a text directly, several times faster than the parser, if it has no syntax error and uses
/// only this much of the text format: comments, entries in braces, decimal numbers, and texts in
/// double quotes without escapes. Calls `use` for each entry, in file order. Returns nothing if
/// `use` did not go on, and for any other text, for which the calls mean nothing. Gives no places.
std::optional<FileHead> ForEachPlainEntry(const std::string& text, const EntryUse& use);

/// Numbers of entries, by the number of their kind's field in the file's message.
using EntryCounts = std::array<std::size_t, 8>;

/// About how many entries `ForEachPlainEntry` finds in a text; takes a small part of its time. Also
/// counts what looks like the beginning of an entry in a comment or in a value, but of no kind more
/// than would fit into the text.
EntryCounts EstimateEntries(std::string_view text);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SITE_ENTRIES_H_
