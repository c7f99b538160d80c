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

/// By the object's name: "zd10", "next hop 101", "neighbour fe80::65 on zd10".
using ObjectStates = std::map<std::string, ObjectState>;

/// Compares what is wanted with what the kernel has. `mtus` are those of the kernel's devices: a
/// device without a wanted MTU is to have its parent's.
ObjectStates Compare(const KernelObjects& wanted, const KernelObjects& present,
                     const std::map<std::string, std::uint32_t>& mtus);

/// The names of a destination's objects: its next hop, and what that needs. Empty if it has none.
std::vector<std::string> ObjectsOfDestination(std::uint32_t id, const KernelObjects& wanted);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_COMPARISON_H_
