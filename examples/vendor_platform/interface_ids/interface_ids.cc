// Interface ids and MAC addresses. Only renderings use them, on the threads that trace: the
// destination manager's, and those of programs that decode messages. All of this may throw; the
// exception reaches whoever asked for the rendering, such as the caller of the adapter.

#include <array>
#include <cstddef>
#include <cstdint>

#include "interface_ids/lim_id.h"
#include "interface_ids/mac_addr.h"

// Fill in the three look-ups. `lim_id` is in host byte order. Each must return 0 and set its result
// for an interface that it knows, else return -1. A rendering then shows the type 0 and no name.

int limid_to_type(std::uint32_t /*lim_id*/, std::uint8_t* /*type*/) { return -1; }

// Must always write the index, also for an interface that it does not know.
int limid_to_ifindex(std::uint32_t /*lim_id*/, std::uint32_t* ifindex) {
  *ifindex = 0;
  return -1;
}

// Must cut the name to `size` bytes and always terminate it; `flags` is 0.
int limid_to_intfname(std::uint32_t /*lim_id*/, char* /*name*/, std::size_t /*size*/,
                      int /*flags*/) {
  return -1;
}

namespace nettypes {

// Must copy six bytes, in the order of transmission; `bytes` is gone afterwards.
MACAddr::MACAddr(const std::uint8_t* bytes)
    : bytes_{bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5]} {}

// Must give six lower-case hexadecimal pairs with colons: "02:00:00:00:01:0a".
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
