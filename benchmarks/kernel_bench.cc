// The cost of adding next hops to the Linux kernel through LinuxKernel::Apply, and with
// hand-written messages, as few as possible.
//
//     kernel_bench OBJECTS ROUNDS
//
// Needs root: works in a network namespace of its own. Prints the median processor time per object
// of both ways and their ratio, for hosts (a neighbour and a next hop) and for groups of four
// hosts.

#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "reference/data_plane/kernel_objects.h"
#include "reference/data_plane/linux/linux_kernel.h"

namespace {

using reference::DeviceNexthop;
using reference::KernelChange;
using reference::LinuxKernel;
using reference::MacAddress;
using reference::NeighbourAddress;
using reference::NexthopGroup;
using reference::PutDevice;
using reference::PutNeighbour;
using reference::PutNexthop;
using reference::RemoveDevice;

// The kernel works in the caller's thread, so the thread's processor time includes its work, and no
// other work of the machine.
using Nanoseconds = std::chrono::nanoseconds;

constexpr char kDevice[] = "zd1";
constexpr MacAddress kMac = {0x02, 0, 0, 0, 0, 0x65};
constexpr std::uint32_t kFirstHost = 1000;
constexpr std::uint32_t kFirstGroup = 10'000'000;
constexpr std::uint32_t kGroupSize = 4;
// About as many changes as a server commits after one read when it is busy.
constexpr std::size_t kBatch = 1000;

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// The lower bound: writes messages into one buffer, sends it when it is full, and requests an
/// acknowledgement for the last message only.
class RawMessages {
 public:
  RawMessages() : socket_(mnl_socket_open(NETLINK_ROUTE)) {
    if (socket_ == nullptr || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) != 0) {
      Fail("netlink");
    }
  }

  void AddHost(unsigned device, std::uint32_t id) {
    const auto address = NeighbourAddress(id);
    nlmsghdr* message = Start(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE);
    auto* const neighbour = static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ndmsg)));
    neighbour->ndm_family = AF_INET6;
    neighbour->ndm_ifindex = static_cast<int>(device);
    neighbour->ndm_state = NUD_PERMANENT;
    mnl_attr_put(message, NDA_DST, address.size(), address.data());
    mnl_attr_put(message, NDA_LLADDR, kMac.size(), kMac.data());
    mnl_attr_put_u8(message, NDA_PROTOCOL, reference::kRoutingProtocol);
    End(message);

    message = Start(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_EXCL);
    auto* const nexthop = static_cast<nhmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(nhmsg)));
    nexthop->nh_family = AF_INET6;
    nexthop->nh_protocol = reference::kRoutingProtocol;
    nexthop->nh_flags = RTNH_F_ONLINK;
    mnl_attr_put_u32(message, NHA_ID, id);
    mnl_attr_put_u32(message, NHA_OIF, device);
    mnl_attr_put(message, NHA_GATEWAY, address.size(), address.data());
    End(message);
  }

  void AddGroup(std::uint32_t id, const std::array<nexthop_grp, kGroupSize>& members) {
    nlmsghdr* const message = Start(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_EXCL);
    auto* const nexthop = static_cast<nhmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(nhmsg)));
    nexthop->nh_protocol = reference::kRoutingProtocol;
    mnl_attr_put_u32(message, NHA_ID, id);
    mnl_attr_put(message, NHA_GROUP, sizeof members, members.data());
    End(message);
  }

  void Send() {
    if (used_ == 0) return;
    last_->nlmsg_flags |= NLM_F_ACK;
    if (mnl_socket_sendto(socket_.get(), buffer_.data(), used_) < 0) Fail("send");
    const ssize_t length = mnl_socket_recvfrom(socket_.get(), buffer_.data(), buffer_.size());
    if (length < 0) Fail("receive");
    int error = 0;
    std::memcpy(&error, buffer_.data() + sizeof(nlmsghdr), sizeof error);
    errno = -error;
    if (error != 0) Fail("the kernel refuses an object");
    used_ = 0;
  }

 private:
  static constexpr std::size_t kPiece = std::size_t{64} * 1024;
  static constexpr std::size_t kLargestMessage = 256;

  nlmsghdr* Start(std::uint16_t type, std::uint16_t flags) {
    nlmsghdr* const message = mnl_nlmsg_put_header(buffer_.data() + used_);
    message->nlmsg_type = type;
    message->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    return message;
  }

  void End(nlmsghdr* message) {
    // All attributes here end on a multiple of four bytes, or libmnl pads them.
    used_ += message->nlmsg_len;
    last_ = message;
    if (used_ > kPiece - kLargestMessage) Send();
  }

  struct Close {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
  };
  std::unique_ptr<mnl_socket, Close> socket_;
  std::vector<char> buffer_ = std::vector<char>(kPiece);
  std::size_t used_ = 0;
  nlmsghdr* last_ = nullptr;
};

std::uint32_t MemberOf(std::uint32_t group, std::uint32_t member, std::uint32_t hosts) {
  return kFirstHost + (group + member) % hosts;
}

Nanoseconds Now() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return std::chrono::seconds(now.tv_sec) + Nanoseconds(now.tv_nsec);
}

double NanosecondsEach(Nanoseconds start, std::uint32_t objects) {
  return static_cast<double>((Now() - start).count()) / objects;
}

// Nanoseconds per host and per group, in this order.
using Costs = std::array<double, 2>;

Costs MeasureRaw(std::uint32_t objects) {
  const unsigned device = if_nametoindex(kDevice);
  RawMessages raw;
  Costs costs{};
  auto start = Now();
  for (std::uint32_t i = 0; i < objects; ++i) raw.AddHost(device, kFirstHost + i);
  raw.Send();
  costs[0] = NanosecondsEach(start, objects);

  start = Now();
  for (std::uint32_t i = 0; i < objects; ++i) {
    std::array<nexthop_grp, kGroupSize> members{};
    for (std::uint32_t k = 0; k < kGroupSize; ++k) members.at(k).id = MemberOf(i, k, objects);
    raw.AddGroup(kFirstGroup + i, members);
  }
  raw.Send();
  costs[1] = NanosecondsEach(start, objects);
  return costs;
}

void Apply(LinuxKernel* kernel, std::vector<KernelChange>* changes) {
  if (!kernel->Apply(*changes).empty()) throw std::runtime_error("the kernel refuses an object");
  changes->clear();
}

Costs MeasureApply(LinuxKernel* kernel, std::uint32_t objects) {
  std::vector<KernelChange> changes;
  Costs costs{};
  auto start = Now();
  for (std::uint32_t id = kFirstHost; id < kFirstHost + objects; ++id) {
    changes.emplace_back(PutNeighbour{{kDevice, NeighbourAddress(id)}, kMac});
    changes.emplace_back(PutNexthop{id, DeviceNexthop{kDevice, NeighbourAddress(id), {}}});
    if (changes.size() >= kBatch) Apply(kernel, &changes);
  }
  Apply(kernel, &changes);
  costs[0] = NanosecondsEach(start, objects);

  start = Now();
  for (std::uint32_t i = 0; i < objects; ++i) {
    NexthopGroup group;
    for (std::uint32_t k = 0; k < kGroupSize; ++k) {
      group.members.emplace_back(MemberOf(i, k, objects), 1);
    }
    std::sort(group.members.begin(), group.members.end());
    changes.emplace_back(PutNexthop{kFirstGroup + i, std::move(group)});
    if (changes.size() >= kBatch) Apply(kernel, &changes);
  }
  Apply(kernel, &changes);
  costs[1] = NanosecondsEach(start, objects);
  return costs;
}

// Replaces the device with an empty one, which removes everything on it.
void Reset(LinuxKernel* kernel) {
  kernel->Read();
  std::vector<KernelChange> changes = {
      RemoveDevice{kDevice},
      PutDevice{kDevice, reference::MacvlanDevice{"eth0", kMac, 1500, "", true, ""}, {}}};
  Apply(kernel, &changes);
  if (!kernel->Read().nexthops.empty()) throw std::runtime_error("next hops are left over");
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Measure(std::uint32_t objects, int rounds) {
  if (unshare(CLONE_NEWNET) != 0) Fail("kernel_bench needs root, for a network namespace");
  if (std::system("ip link add eth0 type veth peer name far0 && ip link set eth0 up && "  // NOLINT
                  "ip link set far0 up") != 0) {
    throw std::runtime_error("cannot create a device");
  }
  LinuxKernel kernel("");
  std::array<std::vector<double>, 2> raw;
  std::array<std::vector<double>, 2> applied;
  for (int round = 0; round < rounds; ++round) {
    Reset(&kernel);
    const Costs raw_costs = MeasureRaw(objects);
    Reset(&kernel);
    const Costs applied_costs = MeasureApply(&kernel, objects);
    if (kernel.Read().nexthops.size() != 2 * std::size_t{objects}) {
      throw std::runtime_error("next hops are missing");
    }
    for (std::size_t i = 0; i < raw.size(); ++i) {
      raw.at(i).push_back(raw_costs.at(i));
      applied.at(i).push_back(applied_costs.at(i));
    }
  }
  std::cout << "| objects | libmnl, CPU ns each | LinuxKernel, CPU ns each | rate |\n"
               "| --- | --- | --- | --- |\n"
            << std::fixed;
  const std::array<const char*, 2> names = {"hosts", "groups of 4"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const double bound = Median(raw.at(i));
    const double cost = Median(applied.at(i));
    std::cout << "| " << objects << ' ' << names.at(i) << std::setprecision(0) << " | " << bound
              << " | " << cost << std::setprecision(2) << " | " << bound / cost << " |\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 3) throw std::runtime_error("usage: kernel_bench OBJECTS ROUNDS");
    Measure(static_cast<std::uint32_t>(std::stoul(argv[1])), std::stoi(argv[2]));
  } catch (const std::exception& error) {
    std::cerr << "kernel_bench: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
