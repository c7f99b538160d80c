#ifndef ZUSKUX_REFERENCE_DATA_PLANE_LINUX_LINUX_KERNEL_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_LINUX_LINUX_KERNEL_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/linux/device_writer.h"
#include "reference/data_plane/linux/messages.h"
#include "reference/data_plane/linux/netlink.h"

namespace reference {

/// Our part of the kernel's devices, neighbours and next hops in one network namespace. Our marks
/// are the device group 171, and the routing protocol 171 of neighbours and next hops. Never
/// changes or removes a device or next hop without them.
///
/// The data plane owns it. Used by one thread, which has to stay in the namespace.
class LinuxKernel {
 public:
  using Refusal = KernelRefusal;

  /// Moves the calling thread into the network namespace that `ip netns add` made under this name;
  /// an empty one leaves it where it is. Throws `std::system_error`, with a text for the operator,
  /// also without the privileges.
  explicit LinuxKernel(const std::string& netns);
  /// With these sockets of the thread's namespace.
  explicit LinuxKernel(NetlinkSockets sockets);
  LinuxKernel(const LinuxKernel&) = delete;
  LinuxKernel& operator=(const LinuxKernel&) = delete;
  /// Leaves all objects in the kernel.
  ~LinuxKernel();

  /// What has our marks; `Apply` may change exactly this, and what it added itself. Throws
  /// `std::system_error`.
  KernelObjects Read();

  /// The MTU of every device, by name. Throws `std::system_error`.
  std::map<std::string, std::uint32_t> Devices();

  /// Makes the changes in this order and returns those that failed, in the same order. Removes a
  /// new device again if it cannot be set up completely. Adding what another program has under the
  /// same name or id fails. Removing what is gone or not ours is a no-op. Call `Read` first. Throws
  /// `std::system_error` if an answer is lost and the kernel cannot be read either.
  std::vector<Refusal> Apply(const std::vector<KernelChange>& changes);

  /// Readable when something changed. Our own changes to neighbours and next hops do not count,
  /// those to devices may.
  int notification_fd() const { return notifications_->fd(); }
  /// Empties it. Returns whether something of ours, or a device, may have changed, so that it is
  /// time to read again. Throws `std::system_error`.
  bool TakeNotifications();

 private:
  // Changes that go to the kernel together, each with its index.
  using Pending = std::vector<std::pair<std::size_t, const KernelChange*>>;

  void CheckPrivileges();
  // Appends the request for a change other than `PutDevice`, if one is needed and possible.
  void Write(std::size_t index, const KernelChange& change, MessageBatch* batch, Pending* pending,
             Refusals* refusals);
  void Send(MessageBatch* batch, const Pending& pending, Refusals* refusals);
  // Keeps `devices_` and `nexthops_` up to date with a change that was made.
  void Note(const KernelChange& change);
  // Compares the changes whose answers are lost with what the kernel has.
  void Verify(const Pending& unknown, const Refusal& reason, Refusals* refusals);

  NetlinkClient client_;
  const std::unique_ptr<NetlinkSocket> notifications_;
  // Ours: devices, and next hops.
  DeviceIndexes devices_;
  std::unordered_set<std::uint32_t> nexthops_;
  // The value of nexthop_compat_mode to restore; empty for none.
  std::string compat_mode_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LINUX_LINUX_KERNEL_H_
