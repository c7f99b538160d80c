#ifndef ZUSKUX_TESTS_HAL_REPORTED_H_
#define ZUSKUX_TESTS_HAL_REPORTED_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "tests/hal/messages.h"
#include "tests/hal/recording_results.h"
#include "tests/support/gate.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"

namespace reference {

/// Lines or events in order, to wait for.
class Record {
 public:
  void Add(const std::string& entry) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(entry);
    changed_.notify_all();
  }

  std::vector<std::string> entries() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }

  /// Waits for `count` entries and returns them, or those that arrived in time.
  std::vector<std::string> Await(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kPatience, [this, count] { return entries_.size() >= count; });
    return entries_;
  }

  /// Waits for an entry that begins with `start` and returns it; empty if none arrived in time.
  std::string AwaitStart(const std::string& start) {
    std::unique_lock lock(mutex_);
    const auto find = [this, &start] {
      return std::find_if(entries_.begin(), entries_.end(), [&start](const std::string& entry) {
        return entry.compare(0, start.size(), start) == 0;
      });
    };
    changed_.wait_for(lock, kPatience, [this, &find] { return find() != entries_.end(); });
    const auto found = find();
    return found == entries_.end() ? "" : *found;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> entries_;
};

/// Records everything that a connection reports: "found", "room", "InstallVlan 5: 0", with a reason
/// "InstallVlan 5: 9 no memory".
class Reported {
 public:
  Reported() : results_([this](const Result& result) { AddResult(result); }) {}

  HalReports Reports() {
    return {&results_, [this] { Add("found"); }, [this] { Add("room"); }};
  }

  /// The same, plus reports without a result operation: "install-vrf 5: 0", "lost", "in sync", "not
  /// in sync", "state vlan 5: 9 no memory", "digests vlan 2 300".
  HalReports AllReports() {
    HalReports reports = Reports();
    reports.vrf_result = [this](const HalRequest& request, HalReturnCode code) {
      AddOutcome(std::string(OperationName(request.operation)), request.id,
                 static_cast<std::uint32_t>(code), std::string(ReportedReason()));
    };
    reports.server_lost = [this] { Add("lost"); };
    reports.reinstall_ended = [this](bool in_sync) { Add(in_sync ? "in sync" : "not in sync"); };
    reports.digests = [this](const HalDigests& digests) {
      std::string event = "digests";
      for (const HalKind kind : kAllHalKinds) {
        const HalDigest& digest = digests.of(kind);
        if (digest == HalDigest()) continue;
        event += ' ' + std::string(HalKindName(kind)) + ' ' + std::to_string(digest.count) + ' ' +
                 std::to_string(digest.sum);
      }
      Add(event);
    };
    reports.object_state = [this](const HalObjectState& state) {
      AddOutcome("state " + std::string(HalKindName(state.kind)), state.id,
                 static_cast<std::uint32_t>(state.code), state.reason);
    };
    return reports;
  }

  /// Called with each event, inside the report. Set before `Start`.
  std::function<void(const std::string& event)> on_event;

  std::vector<std::string> events() const { return record_.entries(); }
  std::vector<std::string> Await(std::size_t count) { return record_.Await(count); }

  /// The one thread that reported so far.
  std::thread::id thread() const {
    const std::lock_guard lock(thread_mutex_);
    return thread_;
  }

 private:
  void AddResult(const Result& result) {
    EXPECT_EQ(result.reported, result.code);
    AddOutcome(result.operation, result.id, result.code, result.reason);
  }

  void AddOutcome(const std::string& operation, std::uint32_t id, std::uint32_t code,
                  const std::string& reason) {
    Add(operation + ' ' + std::to_string(id) + ": " + std::to_string(code) +
        (reason.empty() ? "" : ' ' + reason));
  }

  void Add(const std::string& event) {
    EXPECT_FALSE(inside_.exchange(true)) << event << " inside another report";
    {
      const std::lock_guard lock(thread_mutex_);
      if (thread_ == std::thread::id()) thread_ = std::this_thread::get_id();
      EXPECT_EQ(thread_, std::this_thread::get_id()) << "one thread reports";
    }
    if (on_event) on_event(event);
    inside_ = false;
    record_.Add(event);
  }

  RecordingResults results_;
  Record record_;
  std::atomic<bool> inside_ = false;
  mutable std::mutex thread_mutex_;
  std::thread::id thread_;
};

inline HalReturnCode InstallVlan(HalConnection* hal, std::uint32_t id, std::uint32_t mtu = 1500) {
  VlanEncapsulationMessage message(std::make_unique<encapsulation::VlanMessage>(Vlan(id, mtu)));
  return hal->InstallVlanOutgoingEncapsulation(&message);
}

inline HalReturnCode DestroyVlan(HalConnection* hal, std::uint32_t id) {
  VlanEncapsulationMessage message(std::make_unique<encapsulation::VlanMessage>(Vlan(id)));
  return hal->DestroyVlanOutgoingEncapsulation(&message);
}

inline HalReturnCode InstallVrf(HalConnection* hal, std::uint32_t id) {
  VrfEncapsulationMessage message;
  *message.encap() = Vrf(id);
  return hal->InstallVrfIngressInterface(&message);
}

inline HalReturnCode DestroyVrf(HalConnection* hal, std::uint32_t id) {
  VrfEncapsulationMessage message;
  *message.encap() = Vrf(id);
  return hal->DestroyVrfIngressInterface(&message);
}

}  // namespace reference

#endif  // ZUSKUX_TESTS_HAL_REPORTED_H_
