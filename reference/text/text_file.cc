#include "reference/text/text_file.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <system_error>
#include <tuple>
#include <utility>

#include "reference/text/printable.h"

namespace reference {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::TextFormat;
using google::protobuf::io::ColumnNumber;
using google::protobuf::io::ErrorCollector;
using google::protobuf::io::Tokenizer;

// A place in a text as the tokenizer counts it: from 0, and a tab ends at a multiple of 8 columns.
struct Position {
  int line;
  ColumnNumber column;

  bool operator<(const Position& other) const {
    return std::tie(line, column) < std::tie(other.line, other.column);
  }
  Place AsPlace() const { return {line + 1, column + 1}; }
};

constexpr int kTabWidth = 8;

Position PositionOf(const Tokenizer::Token& token) { return {token.line, token.column}; }

class NoErrors : public ErrorCollector {
  void AddError(int /*line*/, ColumnNumber /*column*/, const std::string& /*text*/) override {}
};

// A part of a text with one entry of the outermost message, as far as its end can be determined.
struct Entry {
  Position start;
  std::size_t begin;
  std::size_t end;
  // How deeply its braces and brackets are nested.
  int depth;
};

// Divides a text into its entries. A brace that is missing must not hide the entries after it, so
// an entry ends not only with its closing brace, but also where another one clearly starts.
class EntryDivider {
 public:
  EntryDivider(const std::string& text, const Descriptor& outermost)
      : text_(text),
        outermost_(outermost),
        input_(text.data(), static_cast<int>(text.size())),
        tokenizer_(&input_, &no_errors_) {
    tokenizer_.set_comment_style(Tokenizer::SH_COMMENT_STYLE);
  }

  void Divide() {
    tokenizer_.Next();
    while (tokenizer_.current().type != Tokenizer::TYPE_END) {
      // From here on, the current token is the one that follows `token`.
      tokenizer_.Next();
      const Tokenizer::Token& token = tokenizer_.previous();
      tokens_.push_back(PositionOf(token));
      if (entries_.empty() || (closed_ && !IsSeparator(token)) || StartsEntry(token)) Start(token);
      Follow(token.text);
    }
    if (!entries_.empty()) entries_.back().end = text_.size();
  }

  const std::vector<Entry>& entries() const { return entries_; }

  // The place of the token before a position: the parser reports an unknown field when it is past
  // its name.
  Place PlaceBefore(Position position) const {
    const auto token = std::lower_bound(tokens_.begin(), tokens_.end(), position);
    return token == tokens_.begin() ? position.AsPlace() : std::prev(token)->AsPlace();
  }

 private:
  static bool IsSeparator(const Tokenizer::Token& token) {
    return token.text == "," || token.text == ";";
  }

  // "vlan {" starts an entry anywhere; "vlna {" does at the start of a line.
  bool StartsEntry(const Tokenizer::Token& token) {
    if (token.type != Tokenizer::TYPE_IDENTIFIER || tokenizer_.current().text != "{") return false;
    return token.column == 0 || outermost_.FindFieldByName(token.text) != nullptr;
  }

  void Start(const Tokenizer::Token& token) {
    const std::size_t offset = OffsetOf(PositionOf(token));
    if (!entries_.empty()) entries_.back().end = offset;
    entries_.push_back({PositionOf(token), offset, offset, 0});
    depth_ = 0;
    closed_ = false;
  }

  void Follow(const std::string& text) {
    if (text == "{" || text == "<" || text == "[") {
      ++depth_;
      entries_.back().depth = std::max(entries_.back().depth, depth_);
    } else if (text == "}" || text == ">" || text == "]") {
      closed_ = --depth_ <= 0;
    }
  }

  // Positions must not go back from call to call.
  std::size_t OffsetOf(Position position) {
    while (offset_ < text_.size() && at_ < position) {
      const char c = text_[offset_++];
      if (c == '\n') {
        at_ = {at_.line + 1, 0};
      } else {
        at_.column += c == '\t' ? kTabWidth - at_.column % kTabWidth : 1;
      }
    }
    return offset_;
  }

  const std::string& text_;
  const Descriptor& outermost_;
  google::protobuf::io::ArrayInputStream input_;
  NoErrors no_errors_;
  Tokenizer tokenizer_;
  std::vector<Position> tokens_;
  std::vector<Entry> entries_;
  int depth_ = 0;
  bool closed_ = false;
  // The last position whose offset was requested.
  Position at_{0, 0};
  std::size_t offset_ = 0;
};

// Collects the parser's errors in one entry, in our words.
class EntryErrors : public ErrorCollector {
 public:
  // The parser reads the entry as a text whose first character is at `origin` of the file.
  EntryErrors(const EntryDivider& divider, const TextFileKind& kind, const Descriptor& outermost,
              const Entry& entry, Position origin, Diagnostics* errors)
      : divider_(divider),
        kind_(kind),
        outermost_(outermost),
        entry_(entry),
        origin_(origin),
        errors_(*errors) {}

  void AddError(int line, ColumnNumber column, const std::string& message) override {
    const std::string not_a_field = "Expected identifier, got: ";
    // Later errors result from the parser's attempt to recover.
    if (failed_) return;
    failed_ = true;
    const Position position = InFile(line, column);
    if (AddUnknownField(position, message)) return;
    // The parser does not skip what separates an unknown field from the next one.
    if (skipped_field_ && (message == not_a_field + "," || message == not_a_field + ";")) return;
    if (message == not_a_field) {
      errors_.Add(entry_.start.AsPlace(), "the entry has no end; write } after its last field");
      return;
    }
    const auto is_full_stop = [](char c) { return c == '.'; };
    errors_.Add(position.AsPlace(),
                "syntax error: " + boost::algorithm::trim_right_copy_if(message, is_full_stop) +
                    "; " + std::string(kind_.remedy));
  }

  void AddWarning(int line, ColumnNumber column, const std::string& message) override {
    if (!failed_ && AddUnknownField(InFile(line, column), message)) skipped_field_ = true;
  }

 private:
  Position InFile(int line, ColumnNumber column) const {
    return {line + origin_.line, line == 0 ? column + origin_.column : column};
  }

  // Turns the parser's complaint, Message type "site.Vlan" has no field named "mtuu", into "vlan
  // has no field "mtuu"" and the fields that it has. Returns false for other complaints.
  bool AddUnknownField(Position position, const std::string& complaint) {
    std::vector<std::string> parts;
    boost::algorithm::split(parts, complaint, boost::algorithm::is_any_of("\""));
    if (parts.size() != 5 || parts[2] != " has no field named ") return false;
    const Descriptor* const type = outermost_.file()->pool()->FindMessageTypeByName(parts[1]);
    std::vector<std::string_view> fields;
    fields.reserve(static_cast<std::size_t>(type->field_count()));
    for (int i = 0; i < type->field_count(); ++i) fields.push_back(type->field(i)->name());
    const std::string owner = type == &outermost_ ? "a " + std::string(kind_.name)
                                                  : boost::algorithm::to_lower_copy(type->name());
    errors_.Add(divider_.PlaceBefore(position),
                owner + " has no field " + Quote(parts[3]) + "; use one of: " + Join(fields));
    return true;
  }

  const EntryDivider& divider_;
  const TextFileKind& kind_;
  const Descriptor& outermost_;
  const Entry& entry_;
  const Position origin_;
  Diagnostics& errors_;
  bool failed_ = false;
  bool skipped_field_ = false;
};

// Parses a text that has a syntax error again, each entry on its own, with `file` as scratch space.
std::vector<Diagnostic> FindSyntaxErrors(const std::string& text, const TextFileKind& kind,
                                         google::protobuf::Message* file) {
  // The parser skips an unknown field by recursion.
  constexpr int kMaxSkippedDepth = 64;
  EntryDivider divider(text, *file->GetDescriptor());
  divider.Divide();
  Diagnostics errors;
  const auto parse = [&](const Entry& entry) {
    // Keeps the tabs where they are.
    const int indent = entry.start.column % kTabWidth;
    EntryErrors entry_errors(divider, kind, *file->GetDescriptor(), entry,
                             {entry.start.line, entry.start.column - indent}, &errors);
    TextFormat::Parser parser;
    parser.RecordErrorsTo(&entry_errors);
    parser.AllowUnknownField(entry.depth <= kMaxSkippedDepth);
    parser.ParseFromString(std::string(static_cast<std::size_t>(indent), ' ') +
                               text.substr(entry.begin, entry.end - entry.begin),
                           file);
  };
  for (const Entry& entry : divider.entries()) parse(entry);
  // For example a field of the outermost message that is set twice.
  if (errors.empty()) parse({{0, 0}, 0, text.size(), kMaxSkippedDepth + 1});
  return errors.Take();
}

constexpr std::size_t kMaxReserved = std::size_t{1} << 30U;

Diagnostic CannotRead(int error, const TextFileKind& kind) {
  return {{},
          "cannot read the file: " + std::generic_category().message(error) +
              "; give the path of a readable " + std::string(kind.name)};
}

}  // namespace

Place PlaceOf(const FieldPlaces& places, const google::protobuf::FieldDescriptor& field,
              int index) {
  // [a, b] is a single place for all its values, so there may be fewer places than values.
  auto location = places.GetLocation(&field, field.is_repeated() ? index : -1);
  if (location.line < 0) location = places.GetLocation(&field, field.is_repeated() ? 0 : -1);
  return {location.line + 1, location.column + 1};
}

std::vector<Diagnostic> ParseTextFile(const std::string& text, const TextFileKind& kind,
                                      google::protobuf::Message* file, FieldPlaces* places) {
  NoErrors no_errors;
  TextFormat::Parser parser;
  parser.RecordErrorsTo(&no_errors);
  parser.WriteLocationsTo(places);
  if (parser.ParseFromString(text, file)) return {};
  return FindSyntaxErrors(text, kind, file);
}

std::variant<std::string, Diagnostic> ReadTextFile(const std::string& path,
                                                   const TextFileKind& kind) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                             &std::fclose);
  if (file == nullptr) return CannotRead(errno, kind);
  std::string text;
  // Only saves time: the size of some files is not that of their bytes.
  std::error_code unknown;
  const auto expected = std::filesystem::file_size(path, unknown);
  if (!unknown) text.reserve(std::min<std::uintmax_t>(expected, kMaxReserved));
  std::array<char, 1 << 16> block;
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
    text.append(block.data(), size);
  }
  if (std::ferror(file.get()) != 0) return CannotRead(errno, kind);
  return text;
}

}  // namespace reference
