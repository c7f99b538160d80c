#ifndef ZUSKUX_REFERENCE_WIRE_SEND_H_
#define ZUSKUX_REFERENCE_WIRE_SEND_H_

#include <cstddef>
#include <string_view>

namespace reference {

/// Sends what the stream socket takes without waiting, and returns how many bytes that was. After
/// an error 0: the next operation on the socket has it again.
std::size_t SendAtOnce(int socket, std::string_view bytes);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WIRE_SEND_H_
