#include "reference/site/entries.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <system_error>

#include "reference/text/printable.h"
#include "site.pb.h"

namespace reference {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

bool IsNumber(const FieldDescriptor& field) {
  return field.cpp_type() == FieldDescriptor::CPPTYPE_INT64;
}

const FieldDescriptor& ObjectCountField() {
  return *site::SiteFile::descriptor()->FindFieldByNumber(site::SiteFile::kObjectCountFieldNumber);
}

void AddFields(const Message& message, Entry* entry) {
  const Reflection& reflection = *message.GetReflection();
  const auto* const type = message.GetDescriptor();
  for (int i = 0; i < type->field_count(); ++i) {
    const FieldDescriptor* const field = type->field(i);
    if (field->is_repeated()) {
      for (int j = 0; j < reflection.FieldSize(message, field); ++j) {
        entry->Add(field->number(),
                   reflection.GetRepeatedStringReference(message, field, j, nullptr));
      }
    } else if (!reflection.HasField(message, field)) {
      continue;
    } else if (IsNumber(*field)) {
      entry->Add(field->number(), reflection.GetInt64(message, field));
    } else {
      entry->Add(field->number(), reflection.GetStringReference(message, field, nullptr));
    }
  }
}

struct KnownField {
  std::string_view name;
  int number;
  bool is_repeated;
  bool is_number;
};

/// The fields of a message, in order. Finding one that follows the last one found is fastest.
class FieldTable {
 public:
  explicit FieldTable(const google::protobuf::Descriptor& type) {
    for (int i = 0; i < type.field_count(); ++i) {
      const FieldDescriptor& field = *type.field(i);
      fields_.push_back({field.name(), field.number(), field.is_repeated(), IsNumber(field)});
    }
  }

  /// Null if there is none of that name.
  const KnownField* Find(std::string_view name) {
    for (std::size_t tried = 0; tried < fields_.size(); ++tried, ++next_) {
      if (next_ >= fields_.size()) next_ = 0;
      if (fields_[next_].name == name) return &fields_[next_++];
    }
    return nullptr;
  }

 private:
  std::vector<KnownField> fields_;
  std::size_t next_ = 0;
};

enum CharClass : std::uint8_t { kSpaceChar = 1, kNameChar = 2, kTextChar = 4 };

// The classes of each character. A zero byte has none, so `PlainText` need not look for the end of
// the text, which a zero byte follows.
constexpr std::array<std::uint8_t, 256> kClassesOfChars = [] {
  std::array<std::uint8_t, 256> classes{};
  for (std::size_t c = ' '; c < classes.size(); ++c) {
    if (c != '"' && c != '\\') classes[c] = kTextChar;
  }
  for (std::size_t c = 'a'; c <= 'z'; ++c) classes[c] |= kNameChar;
  classes['_'] |= kNameChar;
  classes[' '] |= kSpaceChar;
  classes['\n'] |= kSpaceChar;
  classes['\t'] |= kSpaceChar;
  classes['\r'] |= kSpaceChar;
  return classes;
}();

bool IsOf(CharClass char_class, char c) {
  return (kClassesOfChars[static_cast<unsigned char>(c)] & char_class) != 0;
}

/// Reads a plain text. Each function returns whether the text is plain that far.
class PlainText {
 public:
  PlainText(const std::string& text, const EntryUse& use)
      : at_(text.c_str()), end_(at_ + text.size()), use_(use) {
    const auto* const file = site::SiteFile::descriptor();
    for (int i = 0; i < file->field_count(); ++i) {
      const FieldDescriptor* const field = file->field(i);
      if (field->message_type() == nullptr) continue;
      kinds_.push_back({field, FieldTable(*field->message_type())});
    }
  }

  bool Read() {
    for (;;) {
      if (!SkipSpace()) return false;
      if (at_ == end_) return true;
      const std::string_view name = Name();
      const auto kind = std::find_if(kinds_.begin(), kinds_.end(), [name](const Kind& each) {
        return each.field->name() == name;
      });
      if (kind == kinds_.end() ? !ReadObjectCount(name) : !ReadEntry(&*kind)) return false;
    }
  }

  const FileHead& head() const { return head_; }

 private:
  struct Kind {
    const FieldDescriptor* field;
    FieldTable fields;
  };

  bool ReadObjectCount(std::string_view name) {
    std::int64_t count = 0;
    if (name != ObjectCountField().name() || head_.object_count) return false;
    if (!Take(':') || !SkipSpace() || !ReadNumber(&count)) return false;
    head_.object_count = count;
    return true;
  }

  bool ReadEntry(Kind* kind) {
    if (!SkipSpace() || !Take('{')) return false;
    entry_.Start(*kind->field, nullptr, {});
    for (;;) {
      if (!SkipSpace()) return false;
      if (Take('}')) break;
      const KnownField* const field = kind->fields.Find(Name());
      if (field == nullptr || (!field->is_repeated && entry_.Has(field->number))) return false;
      if (!Take(':') || !SkipSpace() || !ReadValue(*field)) return false;
    }
    return use_(entry_);
  }

  bool ReadValue(const KnownField& field) {
    if (field.is_number) {
      std::int64_t number = 0;
      if (!ReadNumber(&number)) return false;
      entry_.Add(field.number, number);
      return true;
    }
    if (!Take('"')) return false;
    const char* const begin = at_;
    Skip(kTextChar);
    entry_.Add(field.number, std::string_view(begin, static_cast<std::size_t>(at_ - begin)));
    return Take('"') && AtEndOfValue();
  }

  bool ReadNumber(std::int64_t* number) {
    const char* const begin = at_;
    const auto [end, error] = std::from_chars(begin, end_, *number);
    at_ = end;
    // 0 begins an octal number unless it stands alone.
    const bool octal = end - begin > 1 && *begin == '0';
    return error == std::errc() && *begin != '-' && !octal && AtEndOfValue();
  }

  bool AtEndOfValue() const { return at_ == end_ || IsOf(kSpaceChar, *at_) || *at_ == '}'; }

  // May be empty.
  std::string_view Name() {
    const char* const begin = at_;
    Skip(kNameChar);
    return {begin, static_cast<std::size_t>(at_ - begin)};
  }

  // Spaces and comments.
  bool SkipSpace() {
    for (;;) {
      Skip(kSpaceChar);
      if (at_ == end_ || *at_ != '#') return true;
      at_ = std::find_if(at_, end_, [](char c) { return c == '\n' || c == '\0'; });
      if (at_ != end_ && *at_ == '\0') return false;
    }
  }

  bool Take(char c) {
    if (at_ == end_ || *at_ != c) return false;
    ++at_;
    return true;
  }

  // Goes past the characters of the class.
  void Skip(CharClass char_class) {
    const char* at = at_;
    while (IsOf(char_class, *at)) ++at;
    at_ = at;
  }

  const char* at_;
  const char* const end_;
  const EntryUse& use_;
  std::vector<Kind> kinds_;
  Entry entry_;
  FileHead head_;
};

}  // namespace

void Entry::Start(const FieldDescriptor& kind, const FieldPlaces* places, Place place) {
  kind_ = &kind;
  places_ = places;
  place_ = place;
  for (std::vector<Value>& values : values_) values.clear();
}

Place Entry::PlaceOf(int field, int index) const {
  if (places_ == nullptr) return place_;
  const Place place = reference::PlaceOf(*places_, Field(field), index);
  return place.line > 0 ? place : place_;
}

std::string Entry::Describe() const {
  const std::string_view name = Text(kind_->message_type()->FindFieldByName("name")->number());
  return name.empty() ? kind_->name() : kind_->name() + ' ' + Quote(name);
}

std::optional<FileHead> ForEachEntry(const Message& file, const FieldPlaces* places,
                                     const EntryUse& use) {
  const Reflection& reflection = *file.GetReflection();
  const auto* const type = file.GetDescriptor();
  Entry entry;
  for (int i = 0; i < type->field_count(); ++i) {
    const FieldDescriptor& kind = *type->field(i);
    if (kind.message_type() == nullptr) continue;
    for (int j = 0; j < reflection.FieldSize(file, &kind); ++j) {
      if (places == nullptr) {
        entry.Start(kind, nullptr, {});
      } else {
        entry.Start(kind, places->GetTreeForNested(&kind, j), PlaceOf(*places, kind, j));
      }
      AddFields(reflection.GetRepeatedMessage(file, &kind, j), &entry);
      if (!use(entry)) return std::nullopt;
    }
  }
  FileHead head;
  const FieldDescriptor& count = ObjectCountField();
  if (reflection.HasField(file, &count)) head.object_count = reflection.GetInt64(file, &count);
  if (places != nullptr) head.object_count_place = PlaceOf(*places, count);
  return head;
}

std::optional<FileHead> ForEachPlainEntry(const std::string& text, const EntryUse& use) {
  // As long as the parser takes.
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return std::nullopt;
  PlainText plain(text, use);
  if (!plain.Read()) return std::nullopt;
  return plain.head();
}

EntryCounts EstimateEntries(std::string_view text) {
  // No valid entry is shorter, so a damaged file cannot make anyone reserve memory for many more.
  constexpr std::size_t kShortest = std::string_view(R"(ecmp{id:1 name:"a"})").size();
  struct Kind {
    std::string_view name;
    std::size_t number;
  };
  const auto* const file = site::SiteFile::descriptor();
  std::vector<Kind> kinds;
  kinds.reserve(static_cast<std::size_t>(file->field_count()));
  for (int i = 0; i < file->field_count(); ++i) {
    kinds.push_back({file->field(i)->name(), static_cast<std::size_t>(file->field(i)->number())});
  }
  EntryCounts counts{};
  for (std::size_t brace = text.find('{'); brace != std::string_view::npos;
       brace = text.find('{', brace + 1)) {
    std::size_t end = brace;
    while (end != 0 && IsOf(kSpaceChar, text[end - 1])) --end;
    std::size_t begin = end;
    while (begin != 0 && IsOf(kNameChar, text[begin - 1])) --begin;
    const std::string_view name = text.substr(begin, end - begin);
    const auto kind = std::find_if(kinds.begin(), kinds.end(),
                                   [name](const Kind& each) { return each.name == name; });
    if (kind != kinds.end()) ++counts.at(kind->number);
  }
  for (std::size_t& count : counts) count = std::min(count, text.size() / kShortest);
  return counts;
}

}  // namespace reference
