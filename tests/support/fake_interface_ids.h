#ifndef ZUSKUX_TESTS_SUPPORT_FAKE_INTERFACE_IDS_H_
#define ZUSKUX_TESTS_SUPPORT_FAKE_INTERFACE_IDS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace testing_support {

/// The answers of the tests' `limid_to_*` functions and `nettypes::MACAddr`, and the calls of them.
struct FakeInterfaceIds {
  // The answers. Without one, the interface is unknown.
  std::optional<std::uint8_t> type;
  std::optional<std::uint32_t> ifindex;
  /// Written whole, up to the buffer's size: without a terminator if it is as long as the buffer.
  std::optional<std::string> name;

  /// Calls so far, for example "limid_to_intfname(0x01000001, size 64, flags 0)" and
  /// "MACAddr(02:00:00:00:01:0a)".
  std::vector<std::string> calls;
};

FakeInterfaceIds& InterfaceIds();

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_FAKE_INTERFACE_IDS_H_
