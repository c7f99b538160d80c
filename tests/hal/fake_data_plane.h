#ifndef ZUSKUX_TESTS_HAL_FAKE_DATA_PLANE_H_
#define ZUSKUX_TESTS_HAL_FAKE_DATA_PLANE_H_

#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "reference/hal/data_plane.h"

namespace reference {

/// A data plane that records its calls and refuses the entries that the test chooses.
class FakeDataPlane : public DataPlane {
 public:
  HalReturnCode Store(HalKind kind, std::uint32_t id,
                      const google::protobuf::Message& message) override {
    const std::string name = Name(kind, id);
    calls_.push_back("store " + name);
    const auto code = codes_.find(name);
    if (code != codes_.end()) {
      reason_ = "no place for " + name;
      return code->second;
    }
    stored_.insert(name);
    entries_[name] = message.SerializeAsString();
    return kHalSuccess;
  }

  const std::string& reason() const override { return reason_; }

  void Remove(HalKind kind, std::uint32_t id) override {
    calls_.push_back("remove " + Name(kind, id));
    entries_.erase(Name(kind, id));
  }

  std::optional<std::string> Commit() override {
    calls_.emplace_back("commit");
    const std::set<std::string> stored = std::exchange(stored_, {});
    for (const std::string& name : stored) {
      if (refused_.count(name) != 0) return "no room for " + name;
    }
    return std::nullopt;
  }

  bool CommitOrLeave() override {
    calls_.emplace_back("commit or leave");
    stored_.clear();
    return leaves_nothing_;
  }

  bool RemoveLeftovers(std::size_t /*limit*/) override {
    calls_.emplace_back("remove leftovers");
    return --leftover_parts_ <= 0;
  }

  std::optional<std::uint64_t> writes() const override { return writes_; }

  int change_fd() const override { return change_fd_; }

  bool TakeChanges() override {
    std::array<char, 64> bytes{};
    return read(change_fd_, bytes.data(), bytes.size()) > 0 && concerned_;
  }

  Repair RepairChanges() override { return Check("changes"); }
  Repair MakeAsWanted() override { return Check("everything"); }

  /// Both return this from now on. May be called on any thread.
  void SetRepair(Repair repair) {
    const std::lock_guard lock(repair_mutex_);
    repair_ = std::move(repair);
  }
  /// Whether both fail. May be called on any thread.
  void set_unreadable(bool unreadable) { unreadable_ = unreadable; }
  /// Not owned. Each of its bytes is a change.
  void set_change_fd(int fd) { change_fd_ = fd; }
  /// Whether changes concern the data plane's objects.
  void set_concerned(bool concerned) { concerned_ = concerned; }
  /// How often it was asked to repair. May be called on any thread.
  int repairs() const { return repairs_; }
  /// What it was asked to check each time: "changes" or "everything". Unlike the functions above,
  /// on the data plane's thread only.
  const std::vector<std::string>& checks() const { return checks_; }

  /// `RemoveLeftovers` has to be called `parts` times.
  void LeaveParts(int parts) { leftover_parts_ = parts; }
  void set_writes(std::uint64_t writes) { writes_ = writes; }

  /// `Store` returns `code` for "vlan 10".
  void RefuseToStore(const std::string& name, HalReturnCode code) { codes_[name] = code; }
  /// `Commit` fails with "vlan 10".
  void RefuseToCommit(const std::string& name) { refused_.insert(name); }

  /// `CommitOrLeave` returns false from now on. Before the server starts.
  void LeaveSomething() { leaves_nothing_ = false; }

  /// "store vlan 10", "remove vlan 10", "commit", "commit or leave", since the last call.
  std::vector<std::string> TakeCalls() { return std::exchange(calls_, {}); }
  /// The messages by name.
  const std::map<std::string, std::string>& entries() const { return entries_; }

 private:
  Repair Check(const std::string& what) {
    const std::lock_guard lock(repair_mutex_);
    checks_.push_back(what);
    ++repairs_;
    if (unreadable_) throw std::system_error(EAGAIN, std::generic_category(), "changes too fast");
    return repair_;
  }

  static std::string Name(HalKind kind, std::uint32_t id) {
    return std::string(HalKindName(kind)) + ' ' + std::to_string(id);
  }

  std::map<std::string, HalReturnCode> codes_;
  std::string reason_;
  std::set<std::string> refused_;
  std::set<std::string> stored_;
  std::vector<std::string> calls_;
  std::map<std::string, std::string> entries_;
  int leftover_parts_ = 0;
  bool leaves_nothing_ = true;
  std::uint64_t writes_ = 0;
  std::mutex repair_mutex_;
  Repair repair_;
  std::vector<std::string> checks_;
  std::atomic<bool> unreadable_{false};
  int change_fd_ = -1;
  std::atomic<bool> concerned_{true};
  std::atomic<int> repairs_{0};
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_HAL_FAKE_DATA_PLANE_H_
