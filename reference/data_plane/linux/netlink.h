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

/// A route netlink socket. The kernel handles a request before the send returns, so its answers are
/// available by then, and no call blocks. Tests inject faults with an implementation of their own.
class NetlinkSocket {
 public:
  NetlinkSocket() = default;
  NetlinkSocket(const NetlinkSocket&) = delete;
  NetlinkSocket& operator=(const NetlinkSocket&) = delete;
  virtual ~NetlinkSocket() = default;

  /// Throws `std::system_error` if the kernel accepted nothing.
  virtual void Send(const char* data, std::size_t size) = 0;
  /// The length of the next datagram; 0 if there is none now. Throws `std::system_error`: ENOBUFS
  /// if the kernel had to drop datagrams, or if the next one was longer than `size` and is lost.
  virtual std::size_t Receive(char* data, std::size_t size) = 0;
  /// Readable when there is a datagram.
  virtual int fd() const = 0;
};

/// The two sockets of a `LinuxKernel`.
struct NetlinkSockets {
  std::unique_ptr<NetlinkSocket> requests;
  /// Receives notifications of changes to devices, neighbours and next hops, except the changes
  /// that the kernel attributes to `requests`.
  std::unique_ptr<NetlinkSocket> notifications;
};

/// Opens them in the calling thread's network namespace. Throws `std::system_error`.
NetlinkSockets OpenNetlinkSockets();

/// Request messages, back to back in one buffer.
class MessageBatch {
 public:
  /// Appends a message without attributes; libmnl's functions add them. Valid until the next call.
  nlmsghdr* Start(std::uint16_t type, std::uint16_t flags);

  std::size_t count() const { return offsets_.size(); }
  nlmsghdr* message(std::size_t index);
  /// Whether the next message may not fit into a piece that the kernel accepts.
  bool IsFull();
  /// Removes the messages, but keeps their memory for the next ones.
  void Clear() { offsets_.clear(); }

 private:
  // The length of all messages.
  std::size_t size();

  std::vector<char> bytes_;
  std::vector<std::size_t> offsets_;
};

/// The kernel's error for a message of a batch.
struct KernelError {
  /// Its index in the batch.
  std::size_t message = 0;
  /// An errno value.
  int error = 0;
  /// For the operator: the kernel's own error text, or else the name of the error.
  std::string text;
  /// False if the kernel's answer was lost; it may have carried out the request.
  bool certain = true;
};

/// Sends requests and reads their answers.
class NetlinkClient {
 public:
  using TakeAnswer = std::function<void(std::size_t message, const nlmsghdr& answer)>;

  explicit NetlinkClient(std::unique_ptr<NetlinkSocket> socket);

  /// Sends the batch, in as few pieces as the kernel accepts, and returns the errors in the order
  /// of the messages. Requests an acknowledgement only for the last message of a piece: the kernel
  /// reports errors anyway.
  std::vector<KernelError> Exchange(MessageBatch* batch, const TakeAnswer& take = {});

  /// Sends one dump request. Calls `restart` before each attempt, and tries again if the objects
  /// changed during the dump. Throws `std::system_error`.
  void Dump(MessageBatch* request, const std::function<void()>& restart,
            const std::function<void(const nlmsghdr&)>& take);

 private:
  void ExchangePiece(MessageBatch* batch, std::size_t begin, std::size_t end,
                     const TakeAnswer& take, std::vector<KernelError>* errors);
  // Returns false if the dump must be repeated.
  bool DumpOnce(MessageBatch* request, const std::function<void(const nlmsghdr&)>& take);

  const std::unique_ptr<NetlinkSocket> socket_;
  std::uint32_t sequence_ = 0;
  std::vector<char> buffer_;
};

/// Reads all datagrams that the socket has now and calls `take` for each message. Returns false if
/// some were lost. Throws `std::system_error` for any other failure.
bool ReceiveAll(NetlinkSocket* socket, std::vector<char>* buffer,
                const std::function<void(const nlmsghdr&)>& take);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LINUX_NETLINK_H_
