#include "reference/server/linux_data_plane.h"

#include <net/if.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "reference/data_plane/ip_commands.h"
#include "reference/data_plane/kernel_data_plane.h"
#include "reference/data_plane/linux/linux_kernel.h"
#include "reference/data_plane/translation.h"

namespace reference {
namespace {

// How long a start may wait for other programs that change the kernel, for example with a flush of
// all next hops.
constexpr std::chrono::seconds kStartLimit(10);

/// Keeps a second server out of the network namespace: an abstract socket's name is unique there.
class NamespaceLock {
 public:
  NamespaceLock() : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    // The first byte is 0.
    constexpr std::string_view kName("\0zuskux-hal", 11);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    kName.copy(&address.sun_path[0], kName.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + kName.size());
    if (bind(socket_, reinterpret_cast<const sockaddr*>(&address), size) == 0) return;
    const int error = errno;
    close(socket_);
    if (error == EADDRINUSE) {
      throw std::runtime_error(
          "another zuskux-hal programs this network namespace; end it, or use --netns");
    }
    throw std::system_error(error, std::generic_category(), "cannot lock the network namespace");
  }
  NamespaceLock(const NamespaceLock&) = delete;
  NamespaceLock& operator=(const NamespaceLock&) = delete;
  ~NamespaceLock() { close(socket_); }

 private:
  int socket_;
};

/// The kernel of the thread's network namespace, for one server.
struct LockedKernel {
  explicit LockedKernel(const std::string& netns) : kernel(netns) {}

  std::vector<RefusedChange> Write(const std::vector<KernelChange>& changes) {
    std::vector<RefusedChange> refused;
    for (LinuxKernel::Refusal& refusal : kernel.Apply(changes)) {
      refused.push_back({refusal.change, std::move(refusal.text)});
    }
    return refused;
  }

  // In this order: the kernel moves the thread into the namespace that is locked.
  LinuxKernel kernel;
  NamespaceLock lock;
};

std::set<std::string> DevicesOfThisNamespace() {
  std::set<std::string> devices;
  const std::unique_ptr<struct if_nameindex, void (*)(struct if_nameindex*)> all(if_nameindex(),
                                                                                 if_freenameindex);
  if (all == nullptr) throw std::system_error(errno, std::generic_category(), "no devices");
  for (const struct if_nameindex* one = all.get(); one->if_index != 0; ++one) {
    devices.insert(one->if_name);
  }
  return devices;
}

}  // namespace

std::unique_ptr<DataPlane> MakeLinuxDataPlane(const InterfaceNames& interfaces,
                                              const std::string& netns, const LogFunction& log) {
  const auto kernel = std::make_shared<LockedKernel>(netns);
  kernel->kernel.RemoveDevicesThatAreDown();
  KernelObjects left = kernel->kernel.ReadWithin(kStartLimit);
  std::map<std::string, std::uint32_t> mtus = kernel->kernel.Devices();
  std::set<std::string> devices;
  for (const auto& [name, mtu] : mtus) {
    if (left.devices.count(name) == 0) devices.insert(name);
  }
  Leftovers leftovers(std::move(left), std::move(mtus));
  if (leftovers.size() != 0) {
    log(LogLevel::kInfo, "found " + std::to_string(leftovers.size()) +
                             " objects of an earlier server in the kernel; they stay until the "
                             "next reinstall ends");
  }
  return std::make_unique<KernelDataPlane>(
      Translation(interfaces, std::move(devices)), std::move(leftovers),
      KernelAccess{
          [kernel](const std::vector<KernelChange>& changes) { return kernel->Write(changes); },
          [kernel] {
            return KernelState{kernel->kernel.Read(), kernel->kernel.Devices(),
                               kernel->kernel.RunningDevices()};
          },
          [kernel] { return kernel->kernel.TakeNotifications(); }, kernel->kernel.notification_fd(),
          [kernel] { return kernel->kernel.CountRoutes(); },
          [kernel](const ObjectKeys& keys) { return kernel->kernel.ReadSome(keys); }},
      log);
}

std::unique_ptr<DataPlane> MakePrintingDataPlane(const InterfaceNames& interfaces,
                                                 std::ostream* out) {
  const auto print = [out](const std::vector<KernelChange>& changes) {
    for (const KernelChange& change : changes) {
      for (const std::string& line : IpCommands(change)) *out << line << '\n';
    }
    if (!out->flush()) throw std::runtime_error("cannot write to standard output");
    return std::vector<RefusedChange>();
  };
  return std::make_unique<KernelDataPlane>(Translation(interfaces, DevicesOfThisNamespace()),
                                           Leftovers(), KernelAccess{print, {}, {}}, LogFunction());
}

}  // namespace reference
