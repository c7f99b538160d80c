#include "reference/text/printable.h"

#include <algorithm>
#include <array>
#include <boost/locale/utf.hpp>
#include <cstdio>

namespace reference {
namespace {

namespace utf = boost::locale::utf;

// Inclusive.
struct CodePoints {
  utf::code_point first;
  utf::code_point last;
};

// Control characters, and format characters that reorder text or are invisible. The joiners U+200C
// and U+200D are allowed, because some scripts need them.
constexpr std::array kUnsafe = {
    CodePoints{0x0000, 0x001F},    // C0
    CodePoints{0x007F, 0x009F},    // delete, C1
    CodePoints{0x00AD, 0x00AD},    // soft hyphen
    CodePoints{0x061C, 0x061C},    // Arabic letter mark
    CodePoints{0x180E, 0x180E},    // Mongolian vowel separator
    CodePoints{0x200B, 0x200B},    // zero width space
    CodePoints{0x200E, 0x200F},    // left-to-right and right-to-left mark
    CodePoints{0x2028, 0x202E},    // line and paragraph separator, embeddings, overrides
    CodePoints{0x2060, 0x206F},    // invisible operators, isolates, deprecated format characters
    CodePoints{0xFEFF, 0xFEFF},    // byte order mark
    CodePoints{0xFFF9, 0xFFFB},    // interlinear annotations
    CodePoints{0xE0000, 0xE007F},  // tags
};

struct Character {
  std::string_view bytes;
  utf::code_point code;
  bool is_utf8;
};

// The first character of a non-empty text. A byte that begins no valid character counts as one.
Character FirstCharacter(std::string_view text) {
  const char* end = text.data();
  const utf::code_point code = utf::utf_traits<char>::decode(end, text.data() + text.size());
  if (!utf::is_valid_codepoint(code)) {
    return {text.substr(0, 1), static_cast<unsigned char>(text[0]), false};
  }
  return {text.substr(0, static_cast<std::size_t>(end - text.data())), code, true};
}

bool IsSafe(const Character& character) {
  return character.is_utf8 &&
         std::none_of(kUnsafe.begin(), kUnsafe.end(), [&character](const CodePoints& unsafe) {
           return unsafe.first <= character.code && character.code <= unsafe.last;
         });
}

std::string Escaped(const Character& character) {
  switch (character.code) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      break;
  }
  const bool is_byte = !character.is_utf8 || character.code < 0x80;
  const char* const format = is_byte ? "\\x%02x" : character.code <= 0xFFFF ? "\\u%04x" : "\\U%08x";
  std::array<char, sizeof("\\U0010ffff")> text{};
  static_cast<void>(
      std::snprintf(text.data(), text.size(), format, static_cast<unsigned>(character.code)));
  return text.data();
}

// `also` lists safe characters that also get a backslash.
std::string Clean(std::string_view text, std::size_t max_bytes, std::string_view also) {
  std::string clean;
  std::size_t taken = 0;
  while (taken < text.size()) {
    const Character character = FirstCharacter(text.substr(taken));
    taken += character.bytes.size();
    if (taken > max_bytes) break;
    if (!IsSafe(character)) {
      clean += Escaped(character);
      continue;
    }
    if (also.find(character.bytes) != std::string_view::npos) clean += '\\';
    clean += character.bytes;
  }
  return clean;
}

}  // namespace

std::string Printable(std::string_view text, std::size_t max_bytes) {
  return Clean(text, max_bytes, {});
}

bool IsPrintable(std::string_view text) {
  while (!text.empty()) {
    if (text.front() >= ' ' && text.front() <= '~') {
      text.remove_prefix(1);
      continue;
    }
    const Character character = FirstCharacter(text);
    if (!IsSafe(character)) return false;
    text.remove_prefix(character.bytes.size());
  }
  return true;
}

std::string Quote(std::string_view text, std::size_t max_bytes) {
  return '"' + Clean(text, max_bytes, "\"\\") + '"';
}

}  // namespace reference
