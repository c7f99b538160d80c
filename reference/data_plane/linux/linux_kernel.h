#ifndef ZUSKUX_REFERENCE_DATA_PLANE_LINUX_LINUX_KERNEL_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_LINUX_LINUX_KERNEL_H_

#include <tsl/robin_map.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/linux/device_writer.h"
#include "reference/data_plane/linux/messages.h"
#include "reference/data_plane/linux/netlink.h"
#include "reference/support/id_hash.h"

namespace reference {

/// Our devices, neighbours and next hops in the kernel, in one network namespace. Marks them: group
/// 171 for devices, routing protocol 171 for neighbours and next hops. Never changes or removes a
/// device or next hop without the mark.
///
/// The data plane owns it. Used by one thread, which must stay in the namespace.
class LinuxKernel {
 public:
  using Refusal = KernelRefusal;

  /// Moves the calling thread into the network namespace that `ip netns add` created under this
  /// name; with an empty name, the thread stays where it is. Throws `std::system_error` with a text
  /// for the operator, for example if privileges are missing.
  explicit LinuxKernel(const std::string& netns);
  /// Uses these sockets, which must be of the thread's namespace.
  explicit LinuxKernel(NetlinkSockets sockets);
  LinuxKernel(const LinuxKernel&) = delete;
  LinuxKernel& operator=(const LinuxKernel&) = delete;
  /// Leaves all objects in the kernel.
  ~LinuxKernel();

  /// Reads the objects with our mark, except devices that are down: they carry no traffic. `Apply`
  /// may change only these objects and those that it has added itself. Throws
  /// `std::system_error`.
  KernelObjects Read();

  /// Like `Read`, but while other programs change the kernel faster than it can be read, tries
  /// again until the limit.
  KernelObjects ReadWithin(std::chrono::milliseconds limit);

  /// Reads only our neighbours and next hops with these keys. Call `Read` first. Returns nothing if
  /// that is impossible, for example because one of them uses a device that is not ours. Throws
  /// `std::system_error`.
  std::optional<KernelObjects> ReadSome(const ObjectKeys& keys);

  /// Removes our devices that are down: a server ended while it created them, or another program
  /// has taken them down. Call `Read` afterwards. Throws `std::system_error`.
  void RemoveDevicesThatAreDown();

  /// The MTU of every device, by name. Throws `std::system_error`.
  std::map<std::string, std::uint32_t> Devices();

  /// The names of all devices that are up and have a carrier. Throws `std::system_error`.
  std::set<std::string> RunningDevices();

  /// The number of routes, in all tables, that use our next hops. Call `Read` first. Throws
  /// `std::system_error`.
  std::size_t CountRoutes();

  /// Makes the changes in this order and returns those that failed, in the same order. If a new
  /// device cannot be set up completely, removes it again. Adding an object fails if another
  /// program has one with the same name or id. Removing an object that is gone or not ours is a
  /// no-op. Call `Read` first. If an answer is lost and the kernel cannot be read either, the
  /// change counts as failed.
  std::vector<Refusal> Apply(const std::vector<KernelChange>& changes);

  /// Readable when something has changed. Our own changes to neighbours and next hops do not make
  /// it readable; our changes to devices may.
  int notification_fd() const { return notifications_->fd(); }
  /// Takes all notifications, and returns which of our objects may have changed, so that it is time
  /// to read them again. Throws `std::system_error`.
  ForeignChanges TakeNotifications();

 private:
  // Changes that go to the kernel together, each with its index.
  using Pending = std::vector<std::pair<std::size_t, const KernelChange*>>;

  void CheckPrivileges();
  // All devices, by index.
  std::map<int, Link> ReadLinks();
  // The names of those of our devices that have one of these indexes.
  std::map<int, std::string> NamesOf(const std::set<int>& indexes) const;
  // Whether the batch has a message on which the change depends: until the kernel has answered it,
  // we do not know whether the next hop is ours.
  bool MustWait(const KernelChange& change) const;
  // Appends the request for a change other than `PutDevice`, if it needs one. Refuses the change if
  // it is impossible.
  void Write(std::size_t index, const KernelChange& change, Pending* pending, Refusals* refusals);
  void Send(const Pending& pending, Refusals* refusals);
  // Updates `devices_` and `nexthops_` after a removal, or after a refused addition.
  void Forget(const KernelChange& change);
  // Refuses those changes with a lost answer that the kernel has not made, as far as can be read.
  void Verify(const Pending& unknown, const Refusal& reason, Refusals* refusals);

  NetlinkClient client_;
  const std::unique_ptr<NetlinkSocket> notifications_;
  // A member so that its memory is reused.
  MessageBatch batch_;
  // Counts the batches that `Apply` has sent.
  std::uint32_t batch_number_ = 0;
  // Our devices.
  DeviceIndexes devices_;
  // Our next hops, each with the number of the batch that adds or removes it.
  tsl::robin_map<std::uint32_t, std::uint32_t, IdHash> nexthops_;
  // The value of nexthop_compat_mode to restore; empty for none.
  std::string compat_mode_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LINUX_LINUX_KERNEL_H_
