#ifndef ZUSKUX_REFERENCE_SERVER_KERNEL_CHECK_H_
#define ZUSKUX_REFERENCE_SERVER_KERNEL_CHECK_H_

#include <iosfwd>
#include <string>

#include "reference/hal/message_fields.h"
#include "reference/socket_client/server_contents.h"

namespace reference {

/// Prints the kernel objects of each entry and whether they are right, then everything else that is
/// wrong. Moves the calling thread into the network namespace `netns`, if that is not empty.
/// Returns whether the kernel has exactly what the tables want. Throws `std::runtime_error`, with a
/// text for the operator.
bool CheckKernel(const ServerContents& contents, const InterfaceNames& interfaces,
                 const std::string& netns, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_KERNEL_CHECK_H_
