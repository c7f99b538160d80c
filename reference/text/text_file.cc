#include "reference/text/text_file.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <array>
#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
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

// Collects the parser's errors, in our words.
class SyntaxErrors : public ErrorCollector {
 public:
  SyntaxErrors(const std::string& text, const TextFileKind& kind, const Descriptor& outermost)
      : text_(text), kind_(kind), outermost_(outermost) {}

  void AddError(int line, ColumnNumber column, const std::string& message) override {
    // Later errors result from the parser's attempt to recover.
    if (!errors_.empty()) return;
    if (std::optional<std::string> unknown_field = DescribeUnknownField(message)) {
      errors_.push_back({PlaceBefore(line, column), *std::move(unknown_field)});
    } else {
      const auto is_full_stop = [](char c) { return c == '.'; };
      errors_.push_back(
          {{line + 1, column + 1},
           "syntax error: " + boost::algorithm::trim_right_copy_if(message, is_full_stop) + "; " +
               std::string(kind_.remedy)});
    }
  }

  std::vector<Diagnostic> Take() { return std::move(errors_); }

 private:
  class NoErrors : public ErrorCollector {
    void AddError(int /*line*/, ColumnNumber /*column*/, const std::string& /*text*/) override {}
  };

  // Turns the parser's complaint, Message type "site.Vlan" has no field named "mtuu", into "vlan
  // has no field "mtuu"" and the fields that it has. Nothing for other complaints.
  std::optional<std::string> DescribeUnknownField(const std::string& complaint) const {
    std::vector<std::string> parts;
    boost::algorithm::split(parts, complaint, boost::algorithm::is_any_of("\""));
    if (parts.size() != 5 || parts[2] != " has no field named ") return std::nullopt;
    const Descriptor* const type = outermost_.file()->pool()->FindMessageTypeByName(parts[1]);
    std::vector<std::string_view> fields;
    fields.reserve(static_cast<std::size_t>(type->field_count()));
    for (int i = 0; i < type->field_count(); ++i) fields.push_back(type->field(i)->name());
    const std::string owner = type == &outermost_ ? "a " + std::string(kind_.name)
                                                  : boost::algorithm::to_lower_copy(type->name());
    return owner + " has no field " + Quote(parts[3]) + "; use one of: " + Join(fields);
  }

  // The place of the token before a place counted from 0: the parser reports an unknown field when
  // it is past its name.
  Place PlaceBefore(int line, ColumnNumber column) const {
    google::protobuf::io::ArrayInputStream input(text_.data(), static_cast<int>(text_.size()));
    NoErrors no_errors;
    Tokenizer tokenizer(&input, &no_errors);
    tokenizer.set_comment_style(Tokenizer::SH_COMMENT_STYLE);
    do {
      tokenizer.Next();
    } while (std::tie(tokenizer.current().line, tokenizer.current().column) <
                 std::tie(line, column) &&
             tokenizer.current().type != Tokenizer::TYPE_END);
    return {tokenizer.previous().line + 1, tokenizer.previous().column + 1};
  }

  const std::string& text_;
  const TextFileKind& kind_;
  const Descriptor& outermost_;
  std::vector<Diagnostic> errors_;
};

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
  SyntaxErrors errors(text, kind, *file->GetDescriptor());
  TextFormat::Parser parser;
  parser.RecordErrorsTo(&errors);
  parser.WriteLocationsTo(places);
  parser.ParseFromString(text, file);
  return errors.Take();
}

std::variant<std::string, Diagnostic> ReadTextFile(const std::string& path,
                                                   const TextFileKind& kind) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                             &std::fclose);
  if (file == nullptr) return CannotRead(errno, kind);
  std::string text;
  std::array<char, 1 << 16> block;
  while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
    text.append(block.data(), size);
  }
  if (std::ferror(file.get()) != 0) return CannotRead(errno, kind);
  return text;
}

}  // namespace reference
