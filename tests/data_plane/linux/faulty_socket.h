#ifndef ZUSKUX_TESTS_DATA_PLANE_LINUX_FAULTY_SOCKET_H_
#define ZUSKUX_TESTS_DATA_PLANE_LINUX_FAULTY_SOCKET_H_

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "reference/data_plane/linux/netlink.h"

namespace reference {

/// Injects faults between us and the kernel.
class FaultySocket : public NetlinkSocket {
 public:
  explicit FaultySocket(std::unique_ptr<NetlinkSocket> socket) : socket_(std::move(socket)) {}

  void Send(const char* data, std::size_t size) override {
    std::string bytes(data, size);
    if (before_send) before_send(&bytes);
    socket_->Send(bytes.data(), bytes.size());
  }

  std::size_t Receive(char* data, std::size_t size) override {
    if (before_receive) before_receive();
    if (!drops_answers) {
      const std::size_t length = socket_->Receive(data, size);
      if (refusal != 0) ReplaceRefusals(data, length);
      return length;
    }
    drops_answers = false;
    while (socket_->Receive(data, size) > 0) {
    }
    throw std::system_error(ENOBUFS, std::generic_category(), "injected");
  }

  int fd() const override { return socket_->fd(); }

  std::function<void(std::string* bytes)> before_send;
  std::function<void()> before_receive;
  // Loses all answers to the last send, as if the receive buffer were full.
  bool drops_answers = false;
  // The errno value that answers messages of an unknown type; 0 for the kernel's own.
  int refusal = 0;

 private:
  void ReplaceRefusals(char* data, std::size_t size) const {
    for (std::size_t place = 0; place < size;) {
      nlmsghdr header{};
      std::memcpy(&header, data + place, sizeof header);
      int error = 0;
      char* const value = data + place + NLMSG_HDRLEN;
      if (header.nlmsg_type == NLMSG_ERROR) std::memcpy(&error, value, sizeof error);
      if (error == -EOPNOTSUPP) {
        error = -refusal;
        std::memcpy(value, &error, sizeof error);
      }
      place += NLMSG_ALIGN(header.nlmsg_len);
    }
  }

  const std::unique_ptr<NetlinkSocket> socket_;
};

[[noreturn]] inline void Throw(int error) {
  throw std::system_error(error, std::generic_category(), "injected");
}

/// Makes the kernel refuse those messages for which `refuses` returns true.
template <typename Refuses>
void RefuseMessages(std::string* bytes, const Refuses& refuses) {
  for (std::size_t place = 0; place < bytes->size();) {
    nlmsghdr header{};
    std::memcpy(&header, bytes->data() + place, sizeof header);
    const std::size_t length = NLMSG_ALIGN(header.nlmsg_len);
    if (refuses(header, bytes->substr(place, length))) {
      // A message type that no kernel knows.
      header.nlmsg_type = RTM_MAX + 1;
      std::memcpy(bytes->data() + place, &header, sizeof header);
    }
    place += length;
  }
}

}  // namespace reference

#endif  // ZUSKUX_TESTS_DATA_PLANE_LINUX_FAULTY_SOCKET_H_
