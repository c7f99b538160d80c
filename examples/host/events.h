#ifndef HOST_EVENTS_H_
#define HOST_EVENTS_H_

#include <cstdint>
#include <string>

namespace host {

/// What a handler was told on the HAL's thread.
struct Event {
  std::string handler;
  std::uint32_t db_id;
};

/// Passes an event to the main thread. Called on any thread.
void PostEvent(Event event);

/// The oldest event that was not taken yet; waits for one.
Event NextEvent();

}  // namespace host

#endif  // HOST_EVENTS_H_
