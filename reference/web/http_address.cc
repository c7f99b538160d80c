#include "reference/web/http_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "reference/text/printable.h"

namespace reference {
namespace {

constexpr std::string_view kUnix = "unix:";
constexpr std::string_view kLocalhost = "localhost";

bool IsIp(int family, const std::string& text) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return inet_pton(family, text.c_str(), address.data()) == 1;
}

bool IsLoopback(const std::string& ip) {
  in_addr v4{};
  if (inet_pton(AF_INET, ip.c_str(), &v4) == 1) return ntohl(v4.s_addr) >> 24U == IN_LOOPBACKNET;
  in6_addr v6{};
  return inet_pton(AF_INET6, ip.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6) != 0;
}

std::optional<std::uint16_t> ReadPort(std::string_view text) {
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, port);
  if (text.empty() || error != std::errc() || rest != end) return std::nullopt;
  return port;
}

// A host and the text behind its last colon; the host of an IPv6 address is without its brackets.
struct HostAndPort {
  std::string host;
  std::optional<std::string_view> port;
  bool bracketed = false;
};

std::optional<HostAndPort> Split(std::string_view text) {
  if (!text.empty() && text.front() == '[') {
    const auto end = text.find(']');
    if (end == std::string_view::npos) return std::nullopt;
    const std::string host(text.substr(1, end - 1));
    const std::string_view rest = text.substr(end + 1);
    if (rest.empty()) return HostAndPort{host, std::nullopt, true};
    if (rest.front() != ':') return std::nullopt;
    return HostAndPort{host, rest.substr(1), true};
  }
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos) return HostAndPort{std::string(text), std::nullopt, false};
  return HostAndPort{std::string(text.substr(0, colon)), text.substr(colon + 1), false};
}

bool SameName(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [lower](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace

HttpAddress ParseHttpAddress(const std::string& text, bool allow_remote) {
  HttpAddress address;
  if (text.compare(0, kUnix.size(), kUnix) == 0 && text.size() > kUnix.size()) {
    address.unix_path = text.substr(kUnix.size());
    return address;
  }
  const auto parts = Split(text);
  const auto port = parts && parts->port ? ReadPort(*parts->port) : std::nullopt;
  if (port) {
    address.port = *port;
    address.ip = parts->host == kLocalhost && !parts->bracketed ? "127.0.0.1" : parts->host;
  }
  if (!port || !IsIp(parts->bracketed ? AF_INET6 : AF_INET, address.ip)) {
    throw std::runtime_error("--http " + Printable(text, kMaxForeignText) +
                             " is no address; write 127.0.0.1:8080, [::1]:8080 or unix:PATH");
  }
  address.local = IsLoopback(address.ip);
  if (!address.local && !allow_remote) {
    throw std::runtime_error("--http " + text +
                             " lets other machines read the site without a password; use "
                             "127.0.0.1, or add --http-allow-remote");
  }
  return address;
}

std::string HttpUrl(const HttpAddress& address) {
  if (!address.unix_path.empty()) return std::string(kUnix) + address.unix_path;
  const bool v6 = address.ip.find(':') != std::string::npos;
  return "http://" + (v6 ? '[' + address.ip + ']' : address.ip) + ':' +
         std::to_string(address.port) + '/';
}

std::string ListeningText(const HttpAddress& address) {
  std::string readers = "every user of this machine";
  if (!address.unix_path.empty()) {
    readers = "only this user";
  } else if (!address.local) {
    readers = "everyone who reaches this address, without a password or encryption,";
  }
  return "http: listening on " + HttpUrl(address) + "; " + readers +
         " can read all objects with their addresses and states there, and change nothing";
}

bool IsOwnHost(std::string_view host, std::string_view machine) {
  const auto parts = Split(host);
  if (!parts || (parts->port && !ReadPort(*parts->port))) return false;
  if (IsIp(parts->bracketed ? AF_INET6 : AF_INET, parts->host)) return true;
  if (parts->bracketed || parts->host.empty()) return false;
  return SameName(parts->host, kLocalhost) || SameName(parts->host, machine);
}

}  // namespace reference
