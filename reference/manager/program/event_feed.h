#ifndef ZUSKUX_REFERENCE_MANAGER_PROGRAM_EVENT_FEED_H_
#define ZUSKUX_REFERENCE_MANAGER_PROGRAM_EVENT_FEED_H_

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "reference/manager/engine/dest_database.h"
#include "reference/manager/program/control_server.h"

namespace reference {

/// The events of a manager, for the clients that follow it. Each client has a bounded queue and
/// gets the number of events that did not fit.
///
/// Owned by the program, on the manager's thread. Costs next to nothing while nobody follows.
class EventFeed {
 public:
  /// An event of the connection, of a reload and the like: one line of text.
  void Add(const std::string& text);
  /// An object's standing has changed.
  void Add(const Object& object);

  /// An answer that never ends. A client follows until the answer is destroyed.
  Answer Follow();

  static constexpr std::size_t kMaxQueued = 1024;

 private:
  struct Queue;

  bool HasFollowers();
  void AddLine(const std::string& line);

  // Owned by the answers.
  std::vector<std::weak_ptr<Queue>> queues_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_PROGRAM_EVENT_FEED_H_
