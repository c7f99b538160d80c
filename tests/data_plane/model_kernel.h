#ifndef ZUSKUX_TESTS_DATA_PLANE_MODEL_KERNEL_H_
#define ZUSKUX_TESTS_DATA_PLANE_MODEL_KERNEL_H_

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"

namespace reference {

/// A strict fake of the kernel. It refuses what Linux refuses, and also what would lose routes or
/// packets: removing an object that others use, changing a device's master in place, and adding a
/// next hop via a missing neighbour.
class ModelKernel {
 public:
  /// `devices` are those that are not ours.
  explicit ModelKernel(std::set<std::string> devices) : devices_(std::move(devices)) {}

  /// Makes a change. Returns the reason if it refuses the change.
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
  // Whether a group of several members has the next hop.
  bool InGroupOfSeveral(std::uint32_t id) const;

  std::set<std::string> devices_;
  KernelObjects objects_;
};

/// Writes all changes. Returns the first refusal, with the index of the change.
std::optional<std::string> WriteAll(const std::vector<KernelChange>& changes, ModelKernel* kernel);

}  // namespace reference

#endif  // ZUSKUX_TESTS_DATA_PLANE_MODEL_KERNEL_H_
