#include "reference/wire/hal_name.h"

#include "reference/wire/unix_listener.h"

namespace reference {
namespace {

constexpr std::string_view kUnix = "unix";
constexpr std::string_view kUnixPrefix = "unix:";

}  // namespace

std::string UnixHalName(const std::string& path) { return std::string(kUnixPrefix) + path; }

std::optional<std::string> UnixHalPath(std::string_view name) {
  if (name == kUnix) return DefaultSocketPath("hal.sock");
  if (name.size() <= kUnixPrefix.size()) return std::nullopt;
  if (name.substr(0, kUnixPrefix.size()) != kUnixPrefix) return std::nullopt;
  return std::string(name.substr(kUnixPrefix.size()));
}

}  // namespace reference
