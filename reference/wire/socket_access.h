#ifndef ZUSKUX_REFERENCE_WIRE_SOCKET_ACCESS_H_
#define ZUSKUX_REFERENCE_WIRE_SOCKET_ACCESS_H_

#include <string>

namespace reference {

/// Throws `std::runtime_error`, which names the user to run as, if the permissions of the socket at
/// `path` or of its folder keep this user from connecting. A no-op in all other cases, also if
/// there is no socket.
void CheckSocketAccess(const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_SOCKET_ACCESS_H_
