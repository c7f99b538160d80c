#ifndef ZUSKUX_REFERENCE_TEXT_TEXT_FILE_H_
#define ZUSKUX_REFERENCE_TEXT_TEXT_FILE_H_

#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "reference/text/diagnostics.h"

namespace reference {

// Files that people write in protobuf's text format.

/// What the diagnostics for such files need besides the schema.
struct TextFileKind {
  /// "site file".
  std::string_view name;
  /// Ends a syntax error: "write numbers as in mtu: 1500".
  std::string_view remedy;
};

using FieldPlaces = google::protobuf::TextFormat::ParseInfoTree;

/// Where `field` of the message with `places` is; for a repeated field, its `index`-th value. Zeros
/// if the message does not have it.
Place PlaceOf(const FieldPlaces& places, const google::protobuf::FieldDescriptor& field,
              int index = 0);

/// Parses `text` into `file`. Records the places of its fields in `places` unless that is null;
/// recording takes several times the time and memory of the rest. Returns the syntax errors in file
/// order; none if the text is well-formed. After an error, reading resumes at the next entry, so
/// each entry of the outermost message has its misspelt fields and its first other error reported.
std::vector<Diagnostic> ParseTextFile(const std::string& text, const TextFileKind& kind,
                                      google::protobuf::Message* file, FieldPlaces* places);

/// The bytes of a file, or why it cannot be read.
std::variant<std::string, Diagnostic> ReadTextFile(const std::string& path,
                                                   const TextFileKind& kind);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_TEXT_FILE_H_
