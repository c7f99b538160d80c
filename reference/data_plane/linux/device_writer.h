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
  /// An errno value; EEXIST if another program has an object of that name or id.
  int error = 0;
  /// One line for the operator; the kernel's own words where it has some.
  std::string text;
};

/// By the index of the change. Only the first reason counts.
using Refusals = std::map<std::size_t, KernelRefusal>;

/// Brings a few devices into the state that is wanted, each with as few changes as possible,
/// because some make the kernel forget neighbours or next hops. One of which that fails is removed
/// again if it is new. Lives as long as one call of `LinuxKernel::Apply` needs it.
class DeviceWriter {
 public:
  explicit DeviceWriter(NetlinkClient* client) : client_(client) {}

  /// Adds a device to write. It must not need another one of this writer.
  void Add(std::size_t change, const PutDevice& put);
  /// Whether it needs, or is, one that was added.
  bool Conflicts(const PutDevice& put) const;

  /// Writes what was added. Adds the devices that are now as wanted to `ours`.
  void Write(DeviceIndexes* ours, Refusals* refusals);

 private:
  struct Work {
    std::size_t change = 0;
    const PutDevice* put = nullptr;
    bool created = false;
  };

  // Asks for the devices into `links_`; those that do not exist are missing there.
  void LookUp(const std::set<std::string>& names);
  void Create(Refusals* refusals);
  void Change(Refusals* refusals);
  void EnableIpv6(Refusals* refusals);
  void Finish(DeviceIndexes* ours, const Refusals& refusals);
  // Indexes of all that was looked up.
  DeviceIndexes Indexes() const;

  NetlinkClient* const client_;
  std::vector<Work> works_;
  std::set<std::string> names_;
  std::map<std::string, Link> links_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LINUX_DEVICE_WRITER_H_
