#include "reference/site/site_values.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <boost/algorithm/hex.hpp>
#include <cstddef>
#include <iterator>

namespace reference {
namespace {

// "xx:xx:xx:xx:xx:xx"
constexpr std::size_t kMacTextSize = 17;
constexpr std::size_t kIpv4Size = 4;
constexpr std::size_t kIpv6Size = 16;

}  // namespace

std::optional<Mac> ParseMac(const std::string& text) {
  if (text.size() != kMacTextSize) return std::nullopt;
  std::string digits;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i % 3 != 2) {
      digits += text[i];
    } else if (text[i] != ':') {
      return std::nullopt;
    }
  }
  Mac mac;
  try {
    boost::algorithm::unhex(digits, mac.begin());
  } catch (const boost::algorithm::hex_decode_error&) {
    return std::nullopt;
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

std::optional<std::string> ParseIp(const std::string& text) {
  std::string bytes(kIpv6Size, '\0');
  // The text format's parser allows a zero byte, at which inet_pton would stop reading.
  if (text.find('\0') != std::string::npos) return std::nullopt;
  if (inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) return bytes;
  if (inet_pton(AF_INET, text.c_str(), bytes.data()) != 1) return std::nullopt;
  bytes.resize(kIpv4Size);
  return bytes;
}

std::string FormatIp(const std::string& bytes) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = bytes.size() == kIpv4Size ? AF_INET : AF_INET6;
  inet_ntop(family, bytes.data(), text.data(), text.size());
  return text.data();
}

}  // namespace reference
