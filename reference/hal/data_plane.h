#ifndef ZUSKUX_REFERENCE_HAL_DATA_PLANE_H_
#define ZUSKUX_REFERENCE_HAL_DATA_PLANE_H_

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/hal_code.h"
#include "reference/hal/hal_object_state.h"
#include "reference/hal/kinds.h"

namespace reference {

/// The outcome of comparing the hardware with the tables and repairing it.
struct Repair {
  /// The number of objects that differed from the tables.
  std::size_t differences = 0;
  /// One line for the operator that names some of them. Empty if there were none.
  std::string text;
  /// The changes that failed, one line each.
  std::vector<std::string> refusals;
  /// All entries that the hardware does not forward for now, each with the cause.
  std::vector<HalObjectState> broken{};
  /// Whether the device of an interface has come, or its link has come up, since the last
  /// comparison. Requests that were refused may succeed now.
  bool interfaces_came = false;
};

/// Forwards packets as the HAL's tables say. The tables pass it each change. The changes take
/// effect together when the server commits those from one read of its client. Used on the thread of
/// the tables.
class DataPlane {
 public:
  DataPlane() = default;
  DataPlane(const DataPlane&) = delete;
  DataPlane& operator=(const DataPlane&) = delete;
  virtual ~DataPlane() = default;

  /// Adds or replaces an entry; `message` is of the kind's class. If that is impossible, returns
  /// the reason and changes nothing.
  virtual HalReturnCode Store(HalKind kind, std::uint32_t id,
                              const google::protobuf::Message& message) = 0;

  /// Why the last `Store` returned `kHalNoInterface` or `kHalNotSupported`: one line for the
  /// operator.
  virtual const std::string& reason() const = 0;

  /// Removes an entry.
  virtual void Remove(HalKind kind, std::uint32_t id) = 0;

  /// Makes the changes since the last commit. If one is refused, returns the reason; some of the
  /// others may have been made. The caller then undoes its changes and calls `CommitOrLeave`.
  virtual std::optional<std::string> Commit() = 0;

  /// Makes the changes since the last commit, if they cannot be undone. Logs a refused change and
  /// leaves the kernel as it is. Returns whether all were made; if not, a repair is due.
  virtual bool CommitOrLeave() = 0;

  /// Removes about `limit` of the objects that an earlier server left in the hardware and that no
  /// entry wants. Called at the end of a reinstall until it returns true, which means that nothing
  /// is left.
  virtual bool RemoveLeftovers(std::size_t limit) = 0;

  /// The number of writes to the hardware so far; nothing if there is no hardware.
  virtual std::optional<std::uint64_t> writes() const = 0;

  /// A descriptor that is readable when another program may have changed the hardware; -1 if that
  /// cannot be detected.
  virtual int change_fd() const = 0;

  /// Consumes what makes `change_fd` readable. Returns whether a repair is due: call
  /// `RepairChanges` soon.
  virtual bool TakeChanges() = 0;

  /// Like `MakeAsWanted`, but may compare only the objects that have changed according to
  /// `TakeChanges` since the last call of either.
  virtual Repair RepairChanges() = 0;

  /// Compares the hardware with the tables and repairs the differences. Do not call between a
  /// change and its commit. Throws `std::system_error` if the hardware cannot be read now, for
  /// example because another program changes it all the time: try again later.
  virtual Repair MakeAsWanted() = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_DATA_PLANE_H_
