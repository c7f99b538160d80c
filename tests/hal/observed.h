#ifndef ZUSKUX_TESTS_HAL_OBSERVED_H_
#define ZUSKUX_TESTS_HAL_OBSERVED_H_

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "reference/hal/request_observer.h"

namespace reference {

/// Records what it observes as lines: "#1 install-vlan 5", "#1 install-vlan 5: 0", with a reason
/// "#1 install-vlan 5: 9 no memory", "begin", "end", "state vlan 5: 9 no memory", "found",
/// "event ...".
class Observed : public RequestObserver {
 public:
  std::uint64_t Request(const HalRequest& request, const void* wrapper) override {
    const std::lock_guard lock(mutex_);
    wrappers_.push_back(wrapper);
    lines_.push_back(Name(wrappers_.size(), request));
    return wrappers_.size();
  }
  void Result(std::uint64_t number, const HalRequest& request, HalReturnCode code,
              std::string_view reason) override {
    std::string line = Name(number, request) + ": ";
    line += std::to_string(static_cast<std::uint32_t>(code));
    if (!reason.empty()) line.append(" ").append(reason);
    Add(line);
  }
  void BeginReinstall() override { Add("begin"); }
  void EndReinstall() override { Add("end"); }
  void ObjectStateChanged(const HalObjectState& state) override {
    Add("state " + std::string(HalKindName(state.kind)) + ' ' + std::to_string(state.id) + ": " +
        std::to_string(static_cast<std::uint32_t>(state.code)) +
        (state.reason.empty() ? "" : " " + state.reason));
  }
  void ServerFound() override { Add("found"); }
  void Event(std::string_view line) override { Add("event " + std::string(line)); }

  std::vector<std::string> lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  /// The wrappers that carried the requests, in order.
  std::vector<const void*> wrappers() const {
    const std::lock_guard lock(mutex_);
    return wrappers_;
  }

 private:
  static std::string Name(std::uint64_t number, const HalRequest& request) {
    return '#' + std::to_string(number) + ' ' + std::string(OperationName(request.operation)) +
           ' ' + std::to_string(request.id);
  }

  void Add(const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
  }

  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
  std::vector<const void*> wrappers_;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_HAL_OBSERVED_H_
