#ifndef ZUSKUX_REFERENCE_DATA_PLANE_LEFTOVERS_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_LEFTOVERS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/translation.h"

namespace reference {

/// What an earlier server left in the kernel, for as long as no entry of the tables wants it: from
/// the start of a server until the first reinstall ends. Packets still flow through it, so nothing
/// is removed before: each object stays until an entry wants it, possibly changed.
///
/// A value; `KernelDataPlane` owns it.
class Leftovers {
 public:
  Leftovers() = default;
  /// `objects` are in the kernel. `mtus` has the MTU of every device in the kernel.
  Leftovers(KernelObjects objects, std::map<std::string, std::uint32_t> mtus);

  const KernelObjects& objects() const { return objects_; }
  std::size_t size() const;

  /// Extends a transition to what the kernel really has before it: the leftovers that it concerns.
  /// What the transition would remove stays, and so do leftovers that depend on what it changes,
  /// as far as the kernel lets them: what would lose its device becomes a blackhole, to keep its
  /// routes. `wanted` are the objects of all entries after the transition.
  Transition Extend(Transition transition, const KernelObjects& wanted) const;

  /// Takes note that the objects of an extended transition are `present` in the kernel now.
  void Settle(const Transition& extended, const KernelObjects& present,
              const KernelObjects& wanted);

  /// Takes out about `limit` objects, to be removed: groups first, devices last.
  KernelObjects Take(std::size_t limit);

 private:
  // The kernel's MTU of a device without a wanted one is its parent's.
  bool HasMtuOfParent(const MacvlanDevice& device) const;

  KernelObjects objects_;
  std::map<std::string, std::uint32_t> mtus_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LEFTOVERS_H_
