#ifndef ZUSKUX_BENCHMARKS_KERNEL_NEXTHOPS_H_
#define ZUSKUX_BENCHMARKS_KERNEL_NEXTHOPS_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"

namespace bench {

// The next hops that every way to program the kernel writes: hosts or MPLS destinations on one VLAN
// destination, and groups of them.

inline constexpr std::uint32_t kVlan = 1;
inline constexpr std::uint32_t kFirstDestination = 1'000;
inline constexpr std::uint32_t kFirstGroup = 10'000'000;
inline constexpr reference::MacAddress kMac = {0x02, 0, 0, 0, 0, 0x65};
using Members = std::array<std::uint32_t, 4>;

/// The members of a group, which are among the first `destinations`.
inline Members MembersOf(std::uint32_t group, std::uint32_t destinations) {
  Members members{};
  for (std::uint32_t k = 0; k < members.size(); ++k) {
    members.at(k) = kFirstDestination + (group + k) % destinations;
  }
  return members;
}

inline std::uint32_t LabelOf(std::uint32_t destination) { return 16 + destination % 1'000; }

/// The cost of writing all objects of a kind.
struct Cost {
  std::chrono::nanoseconds elapsed{};
  /// Of the thread or process that programs the kernel. The kernel works in its caller's thread, so
  /// this includes the kernel's work.
  std::chrono::nanoseconds processor{};
};

enum class NexthopKind { kHost, kMpls, kGroup };

/// Writes the kinds, one after the other, with the fewest messages, back to back in large pieces,
/// with an acknowledgement of the last one of a piece. Throws `std::system_error`.
std::vector<Cost> WriteRaw(const std::vector<NexthopKind>& kinds, std::uint32_t objects);

/// Writes the kinds, one after the other, by asking FRR's zebra, which it starts. Ends when zebra
/// has reported each next hop as installed. Zebra writes no neighbours. `folder` is for zebra's
/// files. Throws `std::runtime_error`.
std::vector<Cost> WriteThroughZebra(const std::string& program, const std::string& folder,
                                    const std::vector<NexthopKind>& kinds, std::uint32_t objects);

}  // namespace bench

#endif  // ZUSKUX_BENCHMARKS_KERNEL_NEXTHOPS_H_
