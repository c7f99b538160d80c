#ifndef ZUSKUX_REFERENCE_WIRE_HAL_NAME_H_
#define ZUSKUX_REFERENCE_WIRE_HAL_NAME_H_

#include <optional>
#include <string>
#include <string_view>

namespace reference {

/// The name of the HAL in the program itself.
inline constexpr std::string_view kEmbeddedHal = "embedded";

/// "unix:PATH", the name of the HAL whose server listens on `path`.
std::string UnixHalName(const std::string& path);

/// The PATH in "unix:PATH", and for "unix" the path of the server's default socket; nothing for any
/// other text.
std::optional<std::string> UnixHalPath(std::string_view name);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_HAL_NAME_H_
