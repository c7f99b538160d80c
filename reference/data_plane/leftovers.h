#ifndef ZUSKUX_REFERENCE_DATA_PLANE_LEFTOVERS_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_LEFTOVERS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/translation.h"

namespace reference {

/// The objects that an earlier server left in the kernel and that no entry of the tables wants yet:
/// from the start of a server until the first reinstall ends. Packets still flow through them, so
/// none is removed before that; an entry that wants one takes it over, possibly changed.
///
/// A value; `KernelDataPlane` owns it.
class Leftovers {
 public:
  Leftovers() = default;
  /// `objects` are in the kernel. `mtus` has the MTU of every device in the kernel.
  Leftovers(KernelObjects objects, std::map<std::string, std::uint32_t> mtus);

  const KernelObjects& objects() const { return objects_; }
  std::size_t size() const;

  /// Adds the leftovers that a transition affects to its former state, which then is the kernel's.
  /// What the transition would remove stays. So do leftovers that depend on what it changes, as far
  /// as the kernel lets them: a next hop that would lose its device becomes a blackhole, to keep
  /// its routes. `wanted` are the objects of all entries after the transition.
  Transition Extend(Transition transition, const KernelObjects& wanted) const;

  /// Records that the objects of an extended transition are `present` in the kernel now.
  void Settle(const Transition& extended, const KernelObjects& present,
              const KernelObjects& wanted);

  /// Removes and returns about `limit` objects, which must be removed from the kernel: groups
  /// first, devices last.
  KernelObjects Take(std::size_t limit);

 private:
  // Without a wanted MTU, the kernel reports the parent's.
  bool HasMtuOfParent(const MacvlanDevice& device) const;

  KernelObjects objects_;
  std::map<std::string, std::uint32_t> mtus_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LEFTOVERS_H_
