#ifndef ZUSKUX_REFERENCE_HAL_DATA_PLANE_H_
#define ZUSKUX_REFERENCE_HAL_DATA_PLANE_H_

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reference/hal/hal_code.h"
#include "reference/hal/kinds.h"

namespace reference {

/// What a comparison of the hardware with the tables found and did.
struct Repair {
  /// How many objects were not as the tables want them.
  std::size_t differences = 0;
  /// One line for the operator that names some of them. Empty if there were none.
  std::string text;
  /// What could not be written, one line each.
  std::vector<std::string> refusals;
};

/// What forwards packets behind the HAL's tables. The tables name the changes, which take effect
/// together: the server commits all that a read from its client brought. Used on the thread of the
/// tables.
class DataPlane {
 public:
  DataPlane() = default;
  DataPlane(const DataPlane&) = delete;
  DataPlane& operator=(const DataPlane&) = delete;
  virtual ~DataPlane() = default;

  /// Adds or replaces an entry; `message` is of the kind's class. Returns why that is impossible;
  /// nothing has changed then.
  virtual HalReturnCode Store(HalKind kind, std::uint32_t id,
                              const google::protobuf::Message& message) = 0;

  /// Removes an entry.
  virtual void Remove(HalKind kind, std::uint32_t id) = 0;

  /// Makes the changes since the last commit. Returns why one was refused; some of the others have
  /// been made then. The caller takes back what it wanted, and commits that with `CommitOrLeave`.
  virtual std::optional<std::string> Commit() = 0;

  /// Makes the changes since the last commit; for those that cannot be taken back. Logs what is
  /// refused, and leaves it as it is.
  virtual void CommitOrLeave() = 0;

  /// Removes what an earlier server left behind the tables, as far as no entry wants it; about
  /// `limit` objects at a time. Called at the end of a reinstall until it returns true, which means
  /// that nothing is left.
  virtual bool RemoveLeftovers(std::size_t limit) = 0;

  /// How many writes it has made to the hardware.
  virtual std::uint64_t writes() const = 0;

  /// A descriptor that is readable when somebody else may have changed the hardware; -1 if that
  /// cannot be noticed.
  virtual int change_fd() const = 0;

  /// Takes what makes `change_fd` readable. Returns whether it is time to repair.
  virtual bool TakeChanges() = 0;

  /// Compares the hardware with the tables, and makes what differs. Not between a change and its
  /// commit.
  virtual Repair MakeAsWanted() = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_DATA_PLANE_H_
