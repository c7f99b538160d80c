#ifndef ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_DATA_PLANE_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_DATA_PLANE_H_

#include <google/protobuf/message.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "reference/data_plane/broken_entries.h"
#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/leftovers.h"
#include "reference/data_plane/translation.h"
#include "reference/hal/data_plane.h"
#include "reference/log/log_function.h"

namespace reference {

/// A change that the kernel refused.
struct RefusedChange {
  /// Its index in the list of changes.
  std::size_t change = 0;
  /// One line for the operator.
  std::string text;
};

/// Makes the changes in this order, and returns the refused ones in the same order.
using WriteChanges = std::function<std::vector<RefusedChange>(const std::vector<KernelChange>&)>;

/// The contents of the kernel.
struct KernelState {
  /// Those with our marks.
  KernelObjects objects;
  /// The MTU of every device, by name.
  std::map<std::string, std::uint32_t> mtus;
  /// The names of the devices that are up and have a carrier.
  std::set<std::string> running{};
};

/// How the data plane reaches the kernel.
struct KernelAccess {
  WriteChanges write;
  /// This and the members below are empty if the changes do not go to a kernel.
  std::function<KernelState()> read;
  /// What other programs have changed since the last call.
  std::function<ForeignChanges()> take_changes;
  int change_fd = -1;
  /// The number of routes that use our next hops; empty if nobody counts them.
  std::function<std::size_t()> count_routes = nullptr;
  /// Reads only our objects with these keys; returns nothing if that is impossible.
  std::function<std::optional<KernelObjects>(const ObjectKeys&)> read_some = nullptr;
};

/// Turns the HAL's tables into kernel objects, and writes what changes. The server's main program
/// owns it.
///
/// Adopts what an earlier server left in the kernel: if an entry wants an unchanged object, nothing
/// is written. Until the leftovers are removed, no other object is removed either, so that packets
/// keep flowing while the manager reinstalls everything.
class KernelDataPlane : public DataPlane {
 public:
  KernelDataPlane(Translation translation, Leftovers left, KernelAccess kernel, LogFunction log);

  HalReturnCode Store(HalKind kind, std::uint32_t id,
                      const google::protobuf::Message& message) override;
  const std::string& reason() const override { return translation_.reason(); }
  void Remove(HalKind kind, std::uint32_t id) override;
  std::optional<std::string> Commit() override;
  bool CommitOrLeave() override;
  bool RemoveLeftovers(std::size_t limit) override;
  std::optional<std::uint64_t> writes() const override;
  int change_fd() const override { return kernel_.change_fd; }
  bool TakeChanges() override;
  Repair RepairChanges() override;
  Repair MakeAsWanted() override;

 private:
  // Makes the transition, which is a repair. If changes are refused, sets `present` to those of its
  // objects that the kernel has now.
  Repair Make(const Transition& transition, RefusedObjects* refused, KernelObjects* present);
  // The entries whose objects are not all as wanted.
  std::vector<HalObjectState> Broken(const KernelState& state, const RefusedObjects& refused) const;
  // Returns whether an interface has come.
  bool NoteDevices(const KernelState& state);
  // Counts the routes, and returns how many have gone since the last count. Unless next hops are
  // lost, does so only if that takes at most a hundredth of the time.
  std::size_t CountLostRoutes(bool nexthops_are_lost);
  // Writes what the transition changes. Returns the refused changes. If there are any, sets
  // `present` to those of the objects that the kernel has now.
  std::vector<RefusedChange> Write(const Transition& taken, KernelObjects* present);
  std::vector<RefusedChange> WriteAndSettle(const Transition& transition,
                                            const std::vector<KernelChange>& changes,
                                            KernelObjects* present);

  Translation translation_;
  Leftovers left_;
  bool adopting_;
  // The objects of all entries; only while adopting.
  KernelObjects wanted_;
  std::size_t removed_ = 0;
  std::uint64_t writes_ = 0;
  // By other programs, since the last comparison.
  ForeignChanges changes_;
  // The routes at the last count, and when the next one is due.
  std::size_t routes_ = 0;
  std::chrono::steady_clock::time_point next_count_;
  const KernelAccess kernel_;
  const LogFunction log_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_DATA_PLANE_H_
