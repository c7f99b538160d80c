#ifndef ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_DATA_PLANE_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_DATA_PLANE_H_

#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
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

/// Turns the HAL's tables into kernel objects, and writes what changes. The server's main program
/// owns it.
class KernelDataPlane : public DataPlane {
 public:
  /// `write` must not be empty.
  KernelDataPlane(Translation translation, WriteChanges write, LogFunction log);

  HalReturnCode Store(HalKind kind, std::uint32_t id,
                      const google::protobuf::Message& message) override;
  void Remove(HalKind kind, std::uint32_t id) override;
  std::optional<std::string> Commit() override;
  void CommitOrLeave() override;

 private:
  Translation translation_;
  const WriteChanges write_;
  const LogFunction log_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_KERNEL_DATA_PLANE_H_
