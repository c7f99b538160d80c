#ifndef ZUSKUX_REFERENCE_DATA_PLANE_DIFFERENCE_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_DIFFERENCE_H_

#include <vector>

#include "reference/data_plane/kernel_objects.h"

namespace reference {

/// The changes that turn `before` into `after`, in an order that the kernel accepts. None for equal
/// objects. The objects may be a part of all, as a `Transition` has them.
///
/// Make before break: an object in both is changed in place and never absent in between. What the
/// kernel cannot change in place is the exception:
/// - A macvlan device with another parent or master is made anew, with the neighbours on it. (A
///   device that changes its master goes down and up again, which flushes its next hops.) Its next
///   hops are blackholes in the meantime, and groups do without them. So no route goes away.
/// - A next hop that becomes a group, or the other way round, is removed and added.
/// - A device's new MAC address flushes the neighbours on it; they are put again at once.
std::vector<KernelChange> Difference(const KernelObjects& before, const KernelObjects& after);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_DIFFERENCE_H_
