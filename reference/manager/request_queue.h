#ifndef ZUSKUX_REFERENCE_MANAGER_REQUEST_QUEUE_H_
#define ZUSKUX_REFERENCE_MANAGER_REQUEST_QUEUE_H_

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>

#include "reference/manager/dest_database.h"

namespace reference {

/// The objects that a request can be sent for, in the order of sending: installs and updates in the
/// order VRF, VLAN, host, tunnel, virtual circuit, ECMP group, so that nothing comes before what it
/// refers to; then removals in the reverse order; by id within each. Used on the manager's thread
/// only; O(log n) a step.
class RequestQueue {
 public:
  /// Puts the object into its place; one that is queued moves there.
  void Add(Object* object);
  /// Takes the object out, if it is queued.
  void Remove(Object* object);

  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  /// The object that comes first. Not for an empty queue.
  ObjectKey front() const { return entries_.begin()->second; }

 private:
  // The rank and the object.
  std::set<std::pair<std::uint8_t, ObjectKey>> entries_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_REQUEST_QUEUE_H_
