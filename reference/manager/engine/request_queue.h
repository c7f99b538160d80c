#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_REQUEST_QUEUE_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_REQUEST_QUEUE_H_

#include <cstddef>
#include <cstdint>
#include <set>
#include <utility>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// The objects whose request can be sent, in sending order. Installs and updates come first, in the
/// order VRF, VLAN, host, tunnel, virtual circuit, ECMP group, so that nothing precedes what it
/// refers to. Removals follow in the reverse order. Within each, the order is by id. Used on the
/// manager's thread only; each operation is O(log n).
class RequestQueue {
 public:
  /// Adds the object, or moves it if it is already queued.
  void Add(Object* object);
  /// Removes the object if it is queued.
  void Remove(Object* object);

  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  /// The first object. Do not call on an empty queue.
  ObjectKey front() const { return entries_.begin()->second; }

 private:
  // The rank and the object.
  std::set<std::pair<std::uint8_t, ObjectKey>> entries_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_REQUEST_QUEUE_H_
