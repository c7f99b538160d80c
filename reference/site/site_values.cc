#include "reference/site/site_values.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <boost/algorithm/hex.hpp>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <system_error>

namespace reference {
namespace {

// "xx:xx:xx:xx:xx:xx"
constexpr std::size_t kMacTextSize = 17;
constexpr std::size_t kIpv4Size = 4;
constexpr std::size_t kIpv6Size = 16;

}  // namespace

std::optional<Mac> ParseMac(std::string_view text) {
  if (text.size() != kMacTextSize) return std::nullopt;
  Mac mac{};
  for (std::size_t i = 0; i < mac.size(); ++i) {
    if (i != 0 && text[3 * i - 1] != ':') return std::nullopt;
    const char* const pair = text.data() + 3 * i;
    const auto [end, error] = std::from_chars(pair, pair + 2, mac.at(i), 16);
    if (error != std::errc() || end != pair + 2) return std::nullopt;
  }
  return mac;
}

std::string FormatMac(const Mac& mac) {
  std::string text;
  for (const std::uint8_t byte : mac) {
    if (!text.empty()) text += ':';
    boost::algorithm::hex_lower(&byte, &byte + 1, std::back_inserter(text));
  }
  return text;
}

std::optional<std::string> ParseIp(std::string_view text) {
  // The text format's parser allows a zero byte, at which inet_pton would stop reading.
  if (text.find('\0') != std::string::npos) return std::nullopt;
  const std::string terminated(text);
  std::array<char, kIpv6Size> bytes{};
  if (inet_pton(AF_INET, terminated.c_str(), bytes.data()) == 1) {
    return std::string(bytes.data(), kIpv4Size);
  }
  if (inet_pton(AF_INET6, terminated.c_str(), bytes.data()) == 1) {
    return std::string(bytes.data(), kIpv6Size);
  }
  return std::nullopt;
}

std::string FormatIp(const std::string& bytes) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = bytes.size() == kIpv4Size ? AF_INET : AF_INET6;
  inet_ntop(family, bytes.data(), text.data(), text.size());
  return text.data();
}

}  // namespace reference
