#include "reference/text/json_text.h"

#include <nlohmann/json.hpp>

namespace reference {

std::string JsonText(const nlohmann::ordered_json& json, int indent) {
  constexpr bool kAsciiOnly = true;
  return json.dump(indent, ' ', kAsciiOnly, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace reference
