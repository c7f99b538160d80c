#include "reference/data_plane/linux/netlink.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/filter.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace reference {
namespace {

// The largest message is a group: 8 bytes for each of at most 8,191 members.
constexpr std::size_t kMaxMessage = 72UL << 10U;
// The kernel copies a piece into one buffer. It may answer each message with an error, and each of
// these takes up a kilobyte of the receive buffer.
constexpr std::size_t kMaxPiece = 64UL << 10U;
// Most messages are smaller.
constexpr std::size_t kUsualMessage = 256;
constexpr int kReceiveBuffer = 8 << 20;
constexpr std::size_t kMaxDatagram = 64UL << 10U;
constexpr int kMaxDumps = 20;

[[noreturn]] void Fail(int error, const std::string& text) {
  throw std::system_error(error, std::generic_category(), text);
}

std::size_t PaddedLength(const nlmsghdr& message) {
  constexpr std::size_t kAlignment = NLMSG_ALIGNTO;
  return (message.nlmsg_len + kAlignment - 1) / kAlignment * kAlignment;
}

class RouteSocket : public NetlinkSocket {
 public:
  explicit RouteSocket(unsigned groups) : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC)) {
    if (socket_ == nullptr) Fail(errno, "cannot open a netlink socket");
    if (mnl_socket_bind(socket_.get(), groups, MNL_SOCKET_AUTOPID) != 0) {
      Fail(errno, "cannot bind a netlink socket");
    }
    // Best effort: older kernels and user namespaces refuse some of these. Without them, error
    // texts are shorter and the buffer is smaller.
    int on = 1;
    mnl_socket_setsockopt(socket_.get(), NETLINK_EXT_ACK, &on, sizeof on);
    mnl_socket_setsockopt(socket_.get(), NETLINK_CAP_ACK, &on, sizeof on);
    setsockopt(fd(), SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer, sizeof kReceiveBuffer);
  }

  // For next hops: unlike those of links and neighbours, their group does not fit into the address.
  void Join(int group) const {
    if (mnl_socket_setsockopt(socket_.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof group) != 0) {
      Fail(errno, "cannot subscribe to the kernel's notifications");
    }
  }

  // Drops notifications of changes that the socket with this port made, before they take up buffer
  // space. When the kernel has removed a neighbour, the notification names no port, but an earlier
  // one names the port that asked for the removal.
  void Ignore(unsigned port) const {
    constexpr auto kPort = static_cast<std::uint32_t>(offsetof(nlmsghdr, nlmsg_pid));
    constexpr auto kType = static_cast<std::uint32_t>(offsetof(nlmsghdr, nlmsg_type));
    // The filter loads in network byte order.
    std::array<sock_filter, 6> code = {{{BPF_LD | BPF_W | BPF_ABS, 0, 0, kPort},
                                        {BPF_JMP | BPF_JEQ | BPF_K, 2, 0, htonl(port)},
                                        {BPF_LD | BPF_H | BPF_ABS, 0, 0, kType},
                                        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, htons(RTM_DELNEIGH)},
                                        {BPF_RET | BPF_K, 0, 0, 0},
                                        {BPF_RET | BPF_K, 0, 0, ~0U}}};
    const sock_fprog program = {static_cast<unsigned short>(code.size()), code.data()};
    if (setsockopt(fd(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
      Fail(errno, "cannot filter the kernel's notifications");
    }
  }

  void Send(const char* data, std::size_t size) override {
    if (mnl_socket_sendto(socket_.get(), data, size) < 0) {
      Fail(errno, "cannot send a request to the kernel");
    }
  }

  std::size_t Receive(char* data, std::size_t size) override {
    // With this flag, the length is that of the datagram even if only its beginning was read.
    const ssize_t length = recv(fd(), data, size, MSG_DONTWAIT | MSG_TRUNC);
    if (length < 0 && errno == EAGAIN) return 0;
    if (length < 0) Fail(errno, "cannot read the kernel's answer");
    if (static_cast<std::size_t>(length) > size) Fail(ENOBUFS, "the kernel's answer is too long");
    return static_cast<std::size_t>(length);
  }

  int fd() const override { return mnl_socket_get_fd(socket_.get()); }
  unsigned port() const { return mnl_socket_get_portid(socket_.get()); }

 private:
  struct Close {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
  };
  std::unique_ptr<mnl_socket, Close> socket_;
};

// The kernel's error text in an error message; empty if there is none.
std::string ExtendedText(const nlmsghdr& message) {
  std::string text;
  if ((message.nlmsg_flags & NLM_F_ACK_TLVS) == 0) return text;
  std::size_t skipped = sizeof(nlmsgerr);
  // Unless this flag is set, an error repeats the whole request.
  if ((message.nlmsg_flags & NLM_F_CAPPED) == 0) {
    const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(&message));
    skipped += error->msg.nlmsg_len - sizeof(nlmsghdr);
  }
  const auto take = [](const nlattr* attribute, void* result) {
    if (mnl_attr_get_type(attribute) == NLMSGERR_ATTR_MSG &&
        mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) == 0) {
      *static_cast<std::string*>(result) = mnl_attr_get_str(attribute);
    }
    return MNL_CB_OK;
  };
  mnl_attr_parse(&message, static_cast<unsigned>(skipped), take, &text);
  return text;
}

std::string Describe(int error, const std::string& extended = {}) {
  return extended.empty() ? std::generic_category().message(error) : extended;
}

// The error in a message that ends an answer; 0 for none.
int ErrorOf(const nlmsghdr& message) {
  if (mnl_nlmsg_get_payload_len(&message) < sizeof(int)) return EBADMSG;
  int error = 0;
  std::memcpy(&error, mnl_nlmsg_get_payload(&message), sizeof error);
  return -error;
}

}  // namespace

NetlinkSockets OpenNetlinkSockets() {
  NetlinkSockets sockets;
  auto requests = std::make_unique<RouteSocket>(0);
  auto notifications = std::make_unique<RouteSocket>(RTMGRP_LINK | RTMGRP_NEIGH);
  notifications->Join(RTNLGRP_NEXTHOP);
  notifications->Ignore(requests->port());
  sockets.requests = std::move(requests);
  sockets.notifications = std::move(notifications);
  return sockets;
}

nlmsghdr* MessageBatch::Start(std::uint16_t type, std::uint16_t flags) {
  const std::size_t used = size();
  if (bytes_.size() < used + kMaxMessage) bytes_.resize(2 * used + kMaxMessage);
  offsets_.push_back(used);
  nlmsghdr* const header = mnl_nlmsg_put_header(bytes_.data() + used);
  header->nlmsg_type = type;
  header->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
  return header;
}

nlmsghdr* MessageBatch::message(std::size_t index) {
  void* const place = bytes_.data() + offsets_.at(index);
  return static_cast<nlmsghdr*>(place);
}

std::size_t MessageBatch::size() {
  return offsets_.empty() ? 0 : offsets_.back() + PaddedLength(*message(offsets_.size() - 1));
}

bool MessageBatch::IsFull() { return size() + kUsualMessage > kMaxPiece; }

bool ReceiveAll(NetlinkSocket* socket, std::vector<char>* buffer,
                const std::function<void(const nlmsghdr&)>& take) {
  buffer->resize(kMaxDatagram);
  bool complete = true;
  for (;;) {
    std::size_t received = 0;
    try {
      received = socket->Receive(buffer->data(), buffer->size());
    } catch (const std::system_error& error) {
      if (error.code().value() != ENOBUFS) throw;
      complete = false;
      continue;
    }
    if (received == 0) return complete;
    const void* const data = buffer->data();
    int left = static_cast<int>(received);
    for (const auto* message = static_cast<const nlmsghdr*>(data); mnl_nlmsg_ok(message, left);
         message = mnl_nlmsg_next(message, &left)) {
      take(*message);
    }
  }
}

NetlinkClient::NetlinkClient(std::unique_ptr<NetlinkSocket> socket) : socket_(std::move(socket)) {}

std::vector<KernelError> NetlinkClient::Exchange(MessageBatch* batch, const TakeAnswer& take) {
  std::vector<KernelError> errors;
  for (std::size_t begin = 0; begin < batch->count();) {
    std::size_t end = begin;
    std::size_t size = 0;
    while (end < batch->count() &&
           (end == begin || size + batch->message(end)->nlmsg_len <= kMaxPiece)) {
      size += PaddedLength(*batch->message(end));
      ++end;
    }
    ExchangePiece(batch, begin, end, take, &errors);
    begin = end;
  }
  return errors;
}

void NetlinkClient::ExchangePiece(MessageBatch* batch, std::size_t begin, std::size_t end,
                                  const TakeAnswer& take, std::vector<KernelError>* errors) {
  const std::uint32_t first = sequence_;
  std::size_t size = 0;
  for (std::size_t index = begin; index < end; ++index) {
    nlmsghdr* const message = batch->message(index);
    message->nlmsg_seq = sequence_++;
    size += PaddedLength(*message);
  }
  batch->message(end - 1)->nlmsg_flags |= NLM_F_ACK;

  const void* const data = batch->message(begin);
  try {
    socket_->Send(static_cast<const char*>(data), size);
  } catch (const std::system_error& error) {
    for (std::size_t index = begin; index < end; ++index) {
      errors->push_back({index, error.code().value(), error.what()});
    }
    return;
  }

  std::vector<bool> failed(end - begin);
  bool acknowledged = false;
  const auto take_message = [&](const nlmsghdr& message) {
    const std::size_t index = message.nlmsg_seq - first;
    if (index >= failed.size()) return;  // A stale answer, to a dump that was abandoned.
    if (message.nlmsg_type != NLMSG_ERROR) {
      if (take) take(begin + index, message);
      return;
    }
    acknowledged = acknowledged || index == failed.size() - 1;
    const int error = ErrorOf(message);
    if (error == 0) return;
    failed[index] = true;
    errors->push_back({begin + index, error, Describe(error, ExtendedText(message))});
  };
  const bool complete = ReceiveAll(socket_.get(), &buffer_, take_message);
  if (complete && acknowledged) return;
  const int error = complete ? EBADMSG : ENOBUFS;
  for (std::size_t index = 0; index < failed.size(); ++index) {
    if (failed[index]) continue;
    errors->push_back({begin + index, error, "the kernel's answer is lost: " + Describe(error),
                       /*certain=*/false});
  }
}

void NetlinkClient::Dump(MessageBatch* request, const std::function<void()>& restart,
                         const std::function<void(const nlmsghdr&)>& take) {
  for (int attempt = 0; attempt < kMaxDumps; ++attempt) {
    restart();
    if (DumpOnce(request, take)) return;
  }
  Fail(EAGAIN, "the kernel's objects change faster than they can be read");
}

bool NetlinkClient::DumpOnce(MessageBatch* request,
                             const std::function<void(const nlmsghdr&)>& take) {
  nlmsghdr* const header = request->message(0);
  header->nlmsg_flags |= NLM_F_DUMP;
  header->nlmsg_seq = sequence_++;
  const void* const data = header;
  socket_->Send(static_cast<const char*>(data), header->nlmsg_len);

  bool consistent = true;
  bool ended = false;
  int error = 0;
  const bool complete = ReceiveAll(socket_.get(), &buffer_, [&](const nlmsghdr& message) {
    if (message.nlmsg_seq != header->nlmsg_seq) return;
    if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0) consistent = false;
    if (message.nlmsg_type == NLMSG_DONE || message.nlmsg_type == NLMSG_ERROR) {
      ended = true;
      error = ErrorOf(message);
    } else {
      take(message);
    }
  });
  if (error != 0) Fail(error, "cannot read the kernel's objects");
  return complete && ended && consistent;
}

}  // namespace reference
