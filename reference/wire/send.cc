#include "reference/wire/send.h"

#include <sys/socket.h>

#include <algorithm>

namespace reference {

std::size_t SendAtOnce(int socket, std::string_view bytes) {
  const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  return static_cast<std::size_t>(std::max<ssize_t>(sent, 0));
}

}  // namespace reference
