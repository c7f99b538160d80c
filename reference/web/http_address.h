#ifndef ZUSKUX_REFERENCE_WEB_HTTP_ADDRESS_H_
#define ZUSKUX_REFERENCE_WEB_HTTP_ADDRESS_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace reference {

/// Where a program serves HTTP.
struct HttpAddress {
  /// The path of a Unix socket. If empty, `ip` and `port` count.
  std::string unix_path;
  /// Without brackets.
  std::string ip;
  /// 0 takes a free one.
  std::uint16_t port = 0;
  /// Whether only programs on this machine can connect.
  bool local = true;
};

/// Parses "unix:PATH", "127.0.0.1:8080", "[::1]:8080" or "localhost:8080". Throws
/// `std::runtime_error`, with the remedy, for any other text, and for an address that other
/// machines can reach unless `allow_remote`.
HttpAddress ParseHttpAddress(const std::string& text, bool allow_remote);

/// "unix:PATH" or "http://127.0.0.1:8080/".
std::string HttpUrl(const HttpAddress& address);

/// What the program says when it listens: the URL, and who can read what there.
std::string ListeningText(const HttpAddress& address);

/// Whether a Host header is one that a browser sends only for this server: an IP address, localhost
/// or the machine's own name, with or without a port. A page of another site that made its own name
/// point to this machine (DNS rebinding) sends that name.
bool IsOwnHost(std::string_view host, std::string_view machine);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WEB_HTTP_ADDRESS_H_
