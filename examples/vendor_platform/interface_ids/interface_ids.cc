// Interface ids and MAC addresses. Only renderings use them, on the threads that trace: the
// destination manager's, and those of programs that decode messages. Everything here may throw; the
// exception propagates to the caller of the rendering, for example the adapter's caller.

#include <array>
#include <cstddef>
#include <cstdint>

#include "interface_ids/lim_id.h"
#include "interface_ids/mac_addr.h"

// Fill in the three look-ups. `lim_id` is in host byte order. For a known interface, each must set
// its result and return 0; otherwise it must return -1. A rendering then shows type 0 and no name.

int limid_to_type(std::uint32_t /*lim_id*/, std::uint8_t* /*type*/) { return -1; }

// Must always write the index, even for an unknown interface.
int limid_to_ifindex(std::uint32_t /*lim_id*/, std::uint32_t* ifindex) {
  *ifindex = 0;
  return -1;
}

// Must truncate the name to `size` bytes and always terminate it; `flags` is 0.
int limid_to_intfname(std::uint32_t /*lim_id*/, char* /*name*/, std::size_t /*size*/,
                      int /*flags*/) {
  return -1;
}

namespace nettypes {

// Must copy six bytes, in transmission order; `bytes` does not outlive the call.
MACAddr::MACAddr(const std::uint8_t* bytes)
    : bytes_{bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5]} {}

// Must return six lower-case hexadecimal pairs with colons: "02:00:00:00:01:0a".
std::string MACAddr::to_string() const {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes_) {
    if (!text.empty()) text += ':';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

}  // namespace nettypes
