#include "events.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace host {
namespace {

std::mutex mutex;
std::condition_variable posted;
std::deque<Event> events;

}  // namespace

void PostEvent(Event event) {
  {
    const std::lock_guard lock(mutex);
    events.push_back(std::move(event));
  }
  posted.notify_one();
}

Event NextEvent() {
  std::unique_lock lock(mutex);
  posted.wait(lock, [] { return !events.empty(); });
  Event event = std::move(events.front());
  events.pop_front();
  return event;
}

}  // namespace host
