#ifndef ZUSKUX_REFERENCE_DATA_PLANE_LINUX_DEVICE_WRITER_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_LINUX_DEVICE_WRITER_H_

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/linux/messages.h"
#include "reference/data_plane/linux/netlink.h"

namespace reference {

/// A change that failed.
struct KernelRefusal {
  /// Its index in the list of changes.
  std::size_t change = 0;
  /// An errno value; EEXIST if another program has an object with that name or id.
  int error = 0;
  /// One line for the operator; the kernel's own error text if there is one.
  std::string text;
};

/// By the index of the change. Only the first refusal of a change counts.
using Refusals = std::map<std::size_t, KernelRefusal>;

/// Brings a few devices into the wanted state. Writes as little as possible, because some changes
/// make the kernel flush neighbours or next hops. If a new device cannot be set up, removes it
/// again. Lives no longer than one call of `LinuxKernel::Apply`.
class DeviceWriter {
 public:
  explicit DeviceWriter(NetlinkClient* client) : client_(client) {}

  /// Adds a device to write. It must not depend on another device of this writer.
  void Add(std::size_t change, const PutDevice& put);
  /// Whether the device has been added already, or depends on one that has.
  bool Conflicts(const PutDevice& put) const;

  /// Writes the added devices. Adds our devices to `ours`, except new ones that failed.
  void Write(DeviceIndexes* ours, Refusals* refusals);

 private:
  struct Work {
    std::size_t change = 0;
    const PutDevice* put = nullptr;
    bool created = false;
  };

  // Looks up the devices and fills `links_`, which has no entry for a missing device.
  void LookUp(const std::set<std::string>& names);
  void Create(Refusals* refusals);
  void Change(Refusals* refusals);
  void EnableIpv6(Refusals* refusals);
  // Removes new devices that failed.
  void Finish(DeviceIndexes* ours, Refusals* refusals);
  // The indexes of all devices that were looked up.
  DeviceIndexes Indexes() const;

  NetlinkClient* const client_;
  std::vector<Work> works_;
  std::set<std::string> names_;
  std::map<std::string, Link> links_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LINUX_DEVICE_WRITER_H_
