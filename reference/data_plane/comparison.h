#ifndef ZUSKUX_REFERENCE_DATA_PLANE_COMPARISON_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_COMPARISON_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"

namespace reference {

enum class ObjectState { kAsWanted, kMissing, kDifferent, kNotWanted };

/// "as wanted", "missing", "different", "not wanted".
std::string ObjectStateText(ObjectState state);

/// Keyed by the object's name: "zd10", "next hop 101", "neighbour fe80::65 on zd10".
using ObjectStates = std::map<std::string, ObjectState>;

/// Sets the MTU of each device without a wanted MTU to that of its parent, which the kernel gives
/// it. `mtus` has the MTU of every device in the kernel.
void UseMtusOfParents(const std::map<std::string, std::uint32_t>& mtus,
                      std::map<std::string, KernelDevice>* devices);

/// Compares the wanted objects with those in the kernel. `mtus` has the MTU of every device in the
/// kernel: a device without a wanted MTU must have its parent's.
ObjectStates Compare(const KernelObjects& wanted, const KernelObjects& present,
                     const std::map<std::string, std::uint32_t>& mtus);

/// Those of them that are not as wanted. `wanted` must have the MTUs of the parents.
ObjectStates Differences(const KernelObjects& wanted, const KernelObjects& present);

/// The names of a destination's objects: its next hop, and what the next hop needs. Empty if the
/// destination has none.
std::vector<std::string> ObjectsOfDestination(std::uint32_t id, const KernelObjects& wanted);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_COMPARISON_H_
