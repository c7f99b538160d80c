// Interface ids and MAC addresses, for renderings. This platform has one interface.

#include <algorithm>
#include <cstdio>

#include "interface_ids/lim_id.h"
#include "interface_ids/mac_addr.h"

namespace {

constexpr std::uint32_t kLimId = 7;

}  // namespace

int limid_to_type(std::uint32_t lim_id, std::uint8_t* type) {
  if (lim_id != kLimId) return -1;
  *type = 1;
  return 0;
}

int limid_to_ifindex(std::uint32_t lim_id, std::uint32_t* ifindex) {
  if (lim_id != kLimId) return -1;
  *ifindex = 70;
  return 0;
}

int limid_to_intfname(std::uint32_t lim_id, char* name, std::size_t size, int /*flags*/) {
  if (lim_id != kLimId || size == 0) return -1;
  static_cast<void>(std::snprintf(name, size, "uplink"));
  return 0;
}

namespace nettypes {

MACAddr::MACAddr(const std::uint8_t* bytes) : bytes_() {
  std::copy_n(bytes, bytes_.size(), bytes_.begin());
}

std::string MACAddr::to_string() const {
  char text[18];
  static_cast<void>(std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0],
                                  bytes_[1], bytes_[2], bytes_[3], bytes_[4], bytes_[5]));
  return text;
}

}  // namespace nettypes
