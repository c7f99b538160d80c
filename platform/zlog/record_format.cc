#include "zlog/record_format.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <regex>
#include <sstream>
#include <utility>

namespace zlog_standin {
namespace {

constexpr std::size_t kMaxTimeLength = 255;

constexpr const char* kConversionHelp =
    "; use %c %d %d(%F %T) %F %f %L %m %ms %n %p %T %t %U %us %V %v %%, with widths from 1 to 999 "
    "as in %-6V or %.20U";
constexpr const char* kTimeHelp =
    " has no text, over 255 characters, or \"ms\" or \"us\"; write for example %d(%F %T), and "
    "fractions of a second after it: %d(%T).%us";

/// Empty where the text is empty or longer than `kMaxTimeLength`.
std::string TimeText(const std::timespec& time, const std::string& format) {
  std::tm local{};
  localtime_r(&time.tv_sec, &local);
  char text[kMaxTimeLength + 1];
  return {text, std::strftime(text, sizeof text, format.c_str(), &local)};
}

/// Fractions of a second are no part of strftime's formats, but some readers of the same
/// configuration replace "ms" and "us" in them.
bool IsTimeFormat(const std::string& format) {
  return !TimeText({}, format).empty() && format.find("ms") == std::string::npos &&
         format.find("us") == std::string::npos;
}

/// The last `digits` digits of `number`, with leading zeros.
std::string Digits(std::int64_t number, std::size_t digits) {
  const std::string text = std::to_string(1'000'000'000 + number);
  return text.substr(text.size() - digits);
}

std::string LowerCase(std::string_view text) {
  std::string lower;
  std::transform(text.begin(), text.end(), std::back_inserter(lower),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return lower;
}

std::string HexThreadId() {
  std::ostringstream text;
  text << "0x" << std::hex << static_cast<unsigned>(pthread_self());
  return text.str();
}

}  // namespace

/// What one piece of a pattern is rendered from.
struct RecordFormat::Field {
  const Record& record;
  const std::string& argument;
  std::string* buffer;

  [[nodiscard]] std::string_view Keep(std::string text) const { return *buffer = std::move(text); }
};

const RecordFormat::Conversion RecordFormat::kConversions[] = {
    {"V", [](const Field& f) { return f.record.level; }},
    {"v", [](const Field& f) { return f.Keep(LowerCase(f.record.level)); }},
    {"c", [](const Field& f) { return f.record.category; }},
    {"d", [](const Field& f) { return f.Keep(TimeText(f.record.time, f.argument)); }},
    {"ms", [](const Field& f) { return f.Keep(Digits(f.record.time.tv_nsec / 1'000'000, 3)); }},
    {"us", [](const Field& f) { return f.Keep(Digits(f.record.time.tv_nsec / 1'000, 6)); }},
    {"F", [](const Field& f) { return f.record.file; }},
    // Without a '/', npos + 1 is 0: the whole path.
    {"f", [](const Field& f) { return f.record.file.substr(f.record.file.rfind('/') + 1); }},
    {"L", [](const Field& f) { return f.Keep(std::to_string(f.record.line)); }},
    {"U", [](const Field& f) { return f.record.function; }},
    {"m", [](const Field& f) { return f.record.text; }},
    {"n", [](const Field&) { return std::string_view("\n"); }},
    {"p", [](const Field& f) { return f.Keep(std::to_string(getpid())); }},
    {"t", [](const Field& f) { return f.Keep(HexThreadId()); }},
    {"T", [](const Field& f) { return f.Keep(std::to_string(pthread_self())); }},
    {"%", [](const Field&) { return std::string_view("%"); }},
};

std::optional<RecordFormat> RecordFormat::Compile(const std::string& pattern, std::string* error) {
  // Groups: 1 left justified, 2 minimum width, 3 maximum width, 4 conversion with its argument.
  const std::regex form(
      R"(%(-?)([1-9]\d{0,2})?(?:\.([1-9]\d{0,2}))?(ms|us|d\([^)]*\)|d(?!\()|[VvcFfLUmnptT%]))");
  RecordFormat format;
  std::smatch match;
  for (auto rest = pattern.begin(); rest != pattern.end();) {
    const auto percent = std::find(rest, pattern.end(), '%');
    if (percent != rest) {
      const auto literal = [](const Field& f) -> std::string_view { return f.argument; };
      format.pieces_.push_back({literal, std::string(rest, percent)});
      rest = percent;
      continue;
    }
    if (!std::regex_search(rest, pattern.end(), match, form,
                           std::regex_constants::match_continuous)) {
      *error = "no conversion at \"" + std::string(rest, pattern.end()) + '"' + kConversionHelp;
      return std::nullopt;
    }
    std::string name = match[4];
    std::string argument;
    if (name.front() == 'd') {
      argument = name.size() > 3 ? name.substr(2, name.size() - 3) : "%F %T";
      name = "d";
      if (!IsTimeFormat(argument)) {
        *error = "%d(" + argument + ')' + kTimeHelp;
        return std::nullopt;
      }
    }
    const auto* const conversion =
        std::find_if(std::begin(kConversions), std::end(kConversions),
                     [&name](const Conversion& known) { return known.name == name; });
    format.pieces_.push_back({conversion->render, std::move(argument), match[1].length() != 0,
                              match[2].matched ? std::stoul(match[2]) : 0,
                              match[3].matched ? std::stoul(match[3]) : std::string::npos});
    rest = match[0].second;
  }
  return format;
}

void RecordFormat::Render(const Record& record, std::string* out) const {
  std::string buffer;
  for (const Piece& piece : pieces_) {
    const auto text = piece.render({record, piece.argument, &buffer}).substr(0, piece.max_width);
    const auto padding = piece.min_width - std::min(piece.min_width, text.size());
    if (!piece.left_justified) out->append(padding, ' ');
    out->append(text);
    if (piece.left_justified) out->append(padding, ' ');
  }
}

}  // namespace zlog_standin
