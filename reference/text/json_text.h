#ifndef ZUSKUX_REFERENCE_TEXT_JSON_TEXT_H_
#define ZUSKUX_REFERENCE_TEXT_JSON_TEXT_H_

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace reference {

/// Writes JSON for a terminal or a file. Foreign strings lose nothing but cannot control a
/// terminal: everything except printable ASCII is escaped, and bytes that are not UTF-8 become
/// U+FFFD. With `indent` -1, everything is on one line.
std::string JsonText(const nlohmann::ordered_json& json, int indent);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_TEXT_JSON_TEXT_H_
