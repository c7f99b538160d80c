#ifndef ZUSKUX_REFERENCE_WIRE_SEND_H_
#define ZUSKUX_REFERENCE_WIRE_SEND_H_

#include <cstddef>
#include <string_view>

namespace reference {

/// Sends what the stream socket accepts without blocking and returns the number of bytes. Returns 0
/// after an error; the next operation on the socket will fail with it.
std::size_t SendAtOnce(int socket, std::string_view bytes);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_SEND_H_
