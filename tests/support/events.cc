#include "tests/support/events.h"

#include <mutex>
#include <utility>

namespace testing_support {

std::vector<std::string>& Events() {
  static std::vector<std::string> events;
  return events;
}

void AddEvent(std::string event) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  Events().push_back(std::move(event));
}

}  // namespace testing_support
