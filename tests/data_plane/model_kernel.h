#ifndef ZUSKUX_TESTS_DATA_PLANE_MODEL_KERNEL_H_
#define ZUSKUX_TESTS_DATA_PLANE_MODEL_KERNEL_H_

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"

namespace reference {

/// A strict kernel for tests: refuses what Linux refuses, and moreover what costs routes or
/// packets: to remove an object that others use, to change a device's master in place, a next hop
/// through a neighbour that does not exist.
class ModelKernel {
 public:
  /// `devices` are those that are not ours.
  explicit ModelKernel(std::set<std::string> devices) : devices_(std::move(devices)) {}

  /// Carries out a change. Returns why it is refused; nothing if it is not.
  std::optional<std::string> Write(const KernelChange& change);

  const KernelObjects& objects() const { return objects_; }
  void set_objects(KernelObjects objects) { objects_ = std::move(objects); }

 private:
  std::optional<std::string> Check(const PutDevice& put) const;
  std::optional<std::string> Check(const RemoveDevice& removed) const;
  std::optional<std::string> Check(const PutNeighbour& put) const;
  std::optional<std::string> Check(const RemoveNeighbour& removed) const;
  std::optional<std::string> Check(const PutNexthop& put) const;
  std::optional<std::string> Check(const RemoveNexthop& removed) const;
  std::optional<std::string> CheckNew(const DeviceNexthop& nexthop) const;
  std::optional<std::string> CheckNew(const NexthopGroup& group) const;
  std::optional<std::string> CheckNew(const KernelDevice& device) const;
  bool HasDevice(const std::string& name) const {
    return devices_.count(name) != 0 || objects_.devices.count(name) != 0;
  }
  // Whether a group of several holds the next hop.
  bool InGroupOfSeveral(std::uint32_t id) const;

  std::set<std::string> devices_;
  KernelObjects objects_;
};

/// Writes all changes. Returns the first refusal with the change's place.
std::optional<std::string> WriteAll(const std::vector<KernelChange>& changes, ModelKernel* kernel);

}  // namespace reference

#endif  // ZUSKUX_TESTS_DATA_PLANE_MODEL_KERNEL_H_
