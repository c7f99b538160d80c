#include "tests/support/fake_interface_ids.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "interface_ids/lim_id.h"
#include "interface_ids/mac_addr.h"

namespace {

std::string Hex(std::uint32_t value) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

}  // namespace

namespace testing_support {

FakeInterfaceIds& InterfaceIds() {
  static FakeInterfaceIds fake;
  return fake;
}

}  // namespace testing_support

using testing_support::InterfaceIds;

int limid_to_type(std::uint32_t lim_id, std::uint8_t* type) {
  InterfaceIds().calls.push_back("limid_to_type(" + Hex(lim_id) + ")");
  if (!InterfaceIds().type) return -1;
  *type = *InterfaceIds().type;
  return 0;
}

int limid_to_ifindex(std::uint32_t lim_id, std::uint32_t* ifindex) {
  InterfaceIds().calls.push_back("limid_to_ifindex(" + Hex(lim_id) + ")");
  *ifindex = InterfaceIds().ifindex.value_or(0);
  return InterfaceIds().ifindex ? 0 : -1;
}

int limid_to_intfname(std::uint32_t lim_id, char* name, std::size_t size, int flags) {
  InterfaceIds().calls.push_back("limid_to_intfname(" + Hex(lim_id) + ", size " +
                                 std::to_string(size) + ", flags " + std::to_string(flags) + ")");
  const bool cleared = std::all_of(name, name + size, [](char byte) { return byte == 0; });
  if (!cleared) InterfaceIds().calls.emplace_back("the name buffer was not cleared");
  if (!InterfaceIds().name) return -1;
  InterfaceIds().name->copy(name, size);
  return 0;
}

namespace nettypes {

MACAddr::MACAddr(const std::uint8_t* bytes) : bytes_() {
  std::memcpy(bytes_.data(), bytes, bytes_.size());
}

std::string MACAddr::to_string() const {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0], bytes_[1], bytes_[2],
                bytes_[3], bytes_[4], bytes_[5]);
  InterfaceIds().calls.push_back(std::string("MACAddr(") + text + ")");
  return text;
}

}  // namespace nettypes
