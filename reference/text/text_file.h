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

/// What the diagnostics of such files say besides what the schema tells.
struct TextFileKind {
  /// "site file".
  std::string_view name;
  /// Ends a syntax error: "write numbers as in mtu: 1500".
  std::string_view remedy;
};

using FieldPlaces = google::protobuf::TextFormat::ParseInfoTree;

/// Where `field` of the message with `places` is; the `index`-th value of a repeated one. Zeros
/// when the message does not have it.
Place PlaceOf(const FieldPlaces& places, const google::protobuf::FieldDescriptor& field,
              int index = 0);

/// Parses `text` into `file` and records the places of its fields in `places`, unless that is null:
/// it takes several times the time and memory of the rest. Returns the first syntax error and the
/// misspelt fields before it; none when the text is well-formed.
std::vector<Diagnostic> ParseTextFile(const std::string& text, const TextFileKind& kind,
                                      google::protobuf::Message* file, FieldPlaces* places);

/// The bytes of a file, or why it cannot be read.
std::variant<std::string, Diagnostic> ReadTextFile(const std::string& path,
                                                   const TextFileKind& kind);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_TEXT_FILE_H_
