#ifndef ZUSKUX_REFERENCE_DATA_PLANE_LINUX_NETLINK_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_LINUX_NETLINK_H_

#include <linux/netlink.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace reference {

/// A route netlink socket. The kernel works on a request before the send returns, so its answers
/// are there by then, and nothing here ever waits. Tests put faults in between.
class NetlinkSocket {
 public:
  NetlinkSocket() = default;
  NetlinkSocket(const NetlinkSocket&) = delete;
  NetlinkSocket& operator=(const NetlinkSocket&) = delete;
  virtual ~NetlinkSocket() = default;

  /// Throws `std::system_error` if the kernel took nothing.
  virtual void Send(const char* data, std::size_t size) = 0;
  /// The length of the next datagram; 0 if there is none now. Throws `std::system_error`: ENOBUFS
  /// if the kernel had to drop datagrams.
  virtual std::size_t Receive(char* data, std::size_t size) = 0;
  /// Readable when there is a datagram.
  virtual int fd() const = 0;
};

/// The two sockets that one user of the kernel has.
struct NetlinkSockets {
  std::unique_ptr<NetlinkSocket> requests;
  /// Gets the changes to devices, neighbours and next hops, except those that `requests` made and
  /// that the kernel attributes to it.
  std::unique_ptr<NetlinkSocket> notifications;
};

/// Opens them in the calling thread's network namespace. Throws `std::system_error`.
NetlinkSockets OpenNetlinkSockets();

/// Request messages, one behind the other.
class MessageBatch {
 public:
  /// Appends a message without attributes; libmnl's functions add them. Valid until the next call.
  nlmsghdr* Start(std::uint16_t type, std::uint16_t flags);

  std::size_t count() const { return offsets_.size(); }
  nlmsghdr* message(std::size_t index);

 private:
  std::vector<char> bytes_;
  std::vector<std::size_t> offsets_;
};

/// What the kernel said against a message of a batch.
struct KernelError {
  /// Its index in the batch.
  std::size_t message = 0;
  /// An errno value.
  int error = 0;
  /// For the operator: the kernel's own words, else the name of the error.
  std::string text;
  /// False if the kernel's answer was lost, so that it may have done what the message asks.
  bool certain = true;
};

/// Sends requests and reads their answers.
class NetlinkClient {
 public:
  using TakeAnswer = std::function<void(std::size_t message, const nlmsghdr& answer)>;

  explicit NetlinkClient(std::unique_ptr<NetlinkSocket> socket);

  /// Sends the batch, in as few pieces as the kernel takes, and returns the errors in the order of
  /// the messages. Only the last message of a piece is acknowledged: errors come unasked.
  std::vector<KernelError> Exchange(MessageBatch* batch, const TakeAnswer& take = {});

  /// Sends one request for a list. Starts over, after a call of `restart`, if the list changed
  /// while the kernel wrote it. Throws `std::system_error`.
  void Dump(MessageBatch* request, const std::function<void()>& restart,
            const std::function<void(const nlmsghdr&)>& take);

 private:
  void ExchangePiece(MessageBatch* batch, std::size_t begin, std::size_t end,
                     const TakeAnswer& take, std::vector<KernelError>* errors);
  // Returns false if it has to be repeated.
  bool DumpOnce(MessageBatch* request, const std::function<void(const nlmsghdr&)>& take);

  const std::unique_ptr<NetlinkSocket> socket_;
  std::uint32_t sequence_ = 0;
  std::vector<char> buffer_;
};

/// Reads all datagrams that a socket has now and calls `take` for each message. Returns false if
/// the kernel had to drop some. Throws `std::system_error` for every other failure.
bool ReceiveAll(NetlinkSocket* socket, std::vector<char>* buffer,
                const std::function<void(const nlmsghdr&)>& take);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LINUX_NETLINK_H_
