#ifndef ZUSKUX_REFERENCE_DATA_PLANE_BROKEN_ENTRIES_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_BROKEN_ENTRIES_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/translation.h"
#include "reference/hal/hal_object_state.h"

namespace reference {

/// Why the kernel lacks objects: the refusals of the changes that would have added them.
struct RefusedObjects {
  std::map<std::string, std::string> devices;
  std::map<NeighbourKey, std::string> neighbours;
  std::map<std::uint32_t, std::string> nexthops;

  void Add(const KernelChange& change, const std::string& text);
};

/// The entries whose kernel objects are not all as wanted, each with the cause: `kHalNoInterface`
/// if the device below is gone, else `kHalKernelRefused`. `wanted` are the objects of all entries
/// of `translation`, `present` those in the kernel; `mtus` has every device in the kernel.
std::vector<HalObjectState> BrokenEntries(const Translation& translation,
                                          const KernelObjects& wanted, const KernelObjects& present,
                                          const std::map<std::string, std::uint32_t>& mtus,
                                          const RefusedObjects& refused);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_BROKEN_ENTRIES_H_
