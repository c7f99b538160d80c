#include <libmnl/libmnl.h>
#include <linux/lwtunnel.h>
#include <linux/mpls.h>
#include <linux/mpls_iptunnel.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <memory>
#include <system_error>
#include <vector>

#include "benchmarks/kernel_nexthops.h"

namespace bench {
namespace {

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// Messages in one buffer, which is sent when it is full.
class RawMessages {
 public:
  RawMessages() : socket_(mnl_socket_open(NETLINK_ROUTE)) {
    if (socket_ == nullptr || mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) != 0) {
      Fail("netlink");
    }
  }

  void AddHost(std::uint32_t id) {
    AddNeighbour(id);
    End(StartNexthop(id));
  }

  void AddMpls(std::uint32_t id) {
    AddNeighbour(id);
    nlmsghdr* const message = StartNexthop(id);
    mnl_attr_put_u16(message, NHA_ENCAP_TYPE, LWTUNNEL_ENCAP_MPLS);
    nlattr* const encapsulation = mnl_attr_nest_start(message, NHA_ENCAP);
    mnl_attr_put_u32(message, MPLS_IPTUNNEL_DST,
                     htonl(LabelOf(id) << MPLS_LS_LABEL_SHIFT | 1U << MPLS_LS_S_SHIFT));
    mnl_attr_nest_end(message, encapsulation);
    End(message);
  }

  void AddGroup(std::uint32_t id, const Members& members) {
    nlmsghdr* const message = Start(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_EXCL);
    PutHeader<nhmsg>(message)->nh_protocol = reference::kRoutingProtocol;
    mnl_attr_put_u32(message, NHA_ID, id);
    std::array<nexthop_grp, std::tuple_size_v<Members>> group{};
    for (std::size_t i = 0; i < group.size(); ++i) group.at(i).id = members.at(i);
    mnl_attr_put(message, NHA_GROUP, sizeof group, group.data());
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

  template <typename Header>
  static Header* PutHeader(nlmsghdr* message) {
    return static_cast<Header*>(mnl_nlmsg_put_extra_header(message, sizeof(Header)));
  }

  nlmsghdr* Start(std::uint16_t type, std::uint16_t flags) {
    nlmsghdr* const message = mnl_nlmsg_put_header(buffer_.data() + used_);
    message->nlmsg_type = type;
    message->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
    return message;
  }

  void AddNeighbour(std::uint32_t id) {
    const auto address = reference::NeighbourAddress(id);
    nlmsghdr* const message = Start(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE);
    auto* const neighbour = PutHeader<ndmsg>(message);
    neighbour->ndm_family = AF_INET6;
    neighbour->ndm_ifindex = static_cast<int>(device_);
    neighbour->ndm_state = NUD_PERMANENT;
    mnl_attr_put(message, NDA_DST, address.size(), address.data());
    mnl_attr_put(message, NDA_LLADDR, kMac.size(), kMac.data());
    mnl_attr_put_u8(message, NDA_PROTOCOL, reference::kRoutingProtocol);
    End(message);
  }

  nlmsghdr* StartNexthop(std::uint32_t id) {
    const auto address = reference::NeighbourAddress(id);
    nlmsghdr* const message = Start(RTM_NEWNEXTHOP, NLM_F_CREATE | NLM_F_EXCL);
    auto* const nexthop = PutHeader<nhmsg>(message);
    nexthop->nh_family = AF_INET6;
    nexthop->nh_protocol = reference::kRoutingProtocol;
    nexthop->nh_flags = RTNH_F_ONLINK;
    mnl_attr_put_u32(message, NHA_ID, id);
    mnl_attr_put_u32(message, NHA_OIF, device_);
    mnl_attr_put(message, NHA_GATEWAY, address.size(), address.data());
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
  const unsigned device_ = if_nametoindex(reference::DestinationDevice(kVlan).c_str());
  std::vector<char> buffer_ = std::vector<char>(kPiece);
  std::size_t used_ = 0;
  nlmsghdr* last_ = nullptr;
};

std::chrono::nanoseconds ThreadTime() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

void WriteAll(NexthopKind kind, std::uint32_t objects, RawMessages* raw) {
  for (std::uint32_t i = 0; i < objects; ++i) {
    if (kind == NexthopKind::kHost) raw->AddHost(kFirstDestination + i);
    if (kind == NexthopKind::kMpls) raw->AddMpls(kFirstDestination + i);
    if (kind == NexthopKind::kGroup) raw->AddGroup(kFirstGroup + i, MembersOf(i, objects));
  }
  raw->Send();
}

}  // namespace

std::vector<Cost> WriteRaw(const std::vector<NexthopKind>& kinds, std::uint32_t objects) {
  RawMessages raw;
  std::vector<Cost> costs;
  for (const NexthopKind kind : kinds) {
    const auto begin = std::chrono::steady_clock::now();
    const auto processor = ThreadTime();
    WriteAll(kind, objects, &raw);
    costs.push_back({std::chrono::steady_clock::now() - begin, ThreadTime() - processor});
  }
  return costs;
}

}  // namespace bench
