#include "reference/web/http_message.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>
#include <utility>

#include "reference/text/json_text.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMaxParameters = 16;

std::optional<unsigned> HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return std::nullopt;
}

bool IsUtf8(const std::string& text) {
  try {
    static_cast<void>(Json(text).dump());
    return true;
  } catch (const Json::exception&) {
    return false;
  }
}

// Percent-decoded.
std::string Decoded(std::string_view text, bool plus_is_space) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+' && plus_is_space) {
      decoded += ' ';
    } else if (text[i] != '%') {
      decoded += text[i];
    } else {
      const auto high = i + 2 < text.size() ? HexDigit(text[i + 1]) : std::nullopt;
      const auto low = i + 2 < text.size() ? HexDigit(text[i + 2]) : std::nullopt;
      if (!high || !low) throw HttpError(400, "a % in the target lacks its two hex digits");
      decoded += static_cast<char>(*high << 4U | *low);
      i += 2;
    }
  }
  if (!IsUtf8(decoded)) throw HttpError(400, "the target is not UTF-8");
  return decoded;
}

// Calls `use` with each part between the separators.
template <typename Use>
void ForEachPart(std::string_view text, char separator, Use use) {
  for (;;) {
    const auto end = text.find(separator);
    use(text.substr(0, end));
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

void AddParameter(std::string_view text, HttpRequest* request) {
  if (text.empty()) return;
  const auto equals = text.find('=');
  const std::string name = Decoded(text.substr(0, equals), true);
  const std::string value =
      equals == std::string_view::npos ? "" : Decoded(text.substr(equals + 1), true);
  if (!request->parameters.emplace(name, value).second) {
    throw HttpError(400, "the parameter " + name + " comes twice; give it once");
  }
  if (request->parameters.size() > kMaxParameters) throw HttpError(400, "too many parameters");
}

// Every string, the names of members included, made safe to show.
void MakePrintable(Json* json) {
  if (json->is_string()) {
    const auto& text = json->get_ref<const std::string&>();
    if (!IsPrintable(text)) *json = Printable(text);
  } else if (json->is_array()) {
    for (Json& element : *json) MakePrintable(&element);
  } else if (json->is_object()) {
    for (const auto& [name, value] : json->items()) MakePrintable(&value);
  }
}

}  // namespace

HttpRequest ParseTarget(std::string_view target) {
  if (target.empty() || target.front() != '/') {
    throw HttpError(400, "the target is no path; it must begin with /");
  }
  HttpRequest request;
  const auto question = target.find('?');
  const std::string_view path =
      target.substr(1, question == std::string_view::npos ? std::string_view::npos : question - 1);
  if (!path.empty()) {
    ForEachPart(path, '/',
                [&](std::string_view part) { request.path.push_back(Decoded(part, false)); });
  }
  if (question != std::string_view::npos) {
    ForEachPart(target.substr(question + 1), '&',
                [&](std::string_view part) { AddParameter(part, &request); });
  }
  return request;
}

std::string Parameters::Text(const std::string& name, std::size_t max_bytes) {
  const auto found = left_.find(name);
  if (found == left_.end()) return {};
  std::string text = std::move(found->second);
  left_.erase(found);
  if (text.size() > max_bytes) {
    throw HttpError(400, "the parameter " + name + " is longer than " + std::to_string(max_bytes) +
                             " bytes; shorten it");
  }
  return text;
}

std::uint64_t Parameters::Number(const std::string& name, std::uint64_t absent, std::uint64_t first,
                                 std::uint64_t last) {
  const auto found = left_.find(name);
  if (found == left_.end()) return absent;
  const std::string text = std::move(found->second);
  left_.erase(found);
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || number < first || number > last) {
    throw HttpError(400, "the parameter " + name + " must be a number from " +
                             std::to_string(first) + " to " + std::to_string(last));
  }
  return number;
}

std::vector<std::string> Parameters::List(const std::string& name) {
  constexpr std::size_t kMaxBytes = 200;
  std::vector<std::string> parts;
  const std::string text = Text(name, kMaxBytes);
  if (!text.empty()) {
    ForEachPart(text, ',', [&parts](std::string_view part) { parts.emplace_back(part); });
  }
  return parts;
}

void Parameters::End() const {
  if (left_.empty()) return;
  throw HttpError(400, "there is no parameter " + left_.begin()->first + " here; leave it out");
}

HttpResponse JsonResponse(Json json) {
  MakePrintable(&json);
  return {200, "application/json", JsonText(json, -1) + '\n'};
}

HttpResponse ErrorResponse(unsigned status, const std::string& text) {
  HttpResponse response = JsonResponse({{"error", Printable(text, kMaxForeignText)}});
  response.status = status;
  return response;
}

}  // namespace reference
