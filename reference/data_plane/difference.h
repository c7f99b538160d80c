#ifndef ZUSKUX_REFERENCE_DATA_PLANE_DIFFERENCE_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_DIFFERENCE_H_

#include <vector>

#include "reference/data_plane/kernel_objects.h"

namespace reference {

/// Returns the changes that turn `before` into `after`, in an order that the kernel accepts. Empty
/// if they are equal. Both may be a subset of all objects, as in a `Transition`.
///
/// Make before break: an object in both changes in place and is never absent in between. The
/// exceptions are what the kernel cannot change in place:
/// - A macvlan device with another parent or master is recreated, with the neighbours on it.
///   (Changing the master in place would take the device down and up, which flushes its next hops.)
///   Meanwhile its next hops are blackholes, and groups leave them out, so that all routes stay.
/// - A next hop that becomes a group, or the other way round, is removed and added.
/// - A device's new MAC address flushes the neighbours on it; they are added again at once.
std::vector<KernelChange> Difference(const KernelObjects& before, const KernelObjects& after);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_DIFFERENCE_H_
