#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_REQUEST_QUEUE_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_REQUEST_QUEUE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>

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

  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  /// The first object. Do not call on an empty queue.
  ObjectKey front() const;

 private:
  /// The objects of a rank. Most arrive in the order of ids, and then take 4 bytes each.
  struct Line {
    bool empty() const { return in_order.empty() && others.empty(); }
    std::uint32_t front() const;

    // In ascending order. The first one is never withdrawn.
    std::deque<std::uint32_t> in_order;
    // Those of them that are no longer queued.
    std::set<std::uint32_t> withdrawn;
    // Those that came after one with a greater id.
    std::set<std::uint32_t> others;
  };

  // By rank: the layers' installs, then the removals.
  std::array<Line, 2 * kKindOfLayer.size()> lines_;
  std::size_t size_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_REQUEST_QUEUE_H_
