#ifndef ZUSKUX_REFERENCE_SERVER_LINUX_DATA_PLANE_H_
#define ZUSKUX_REFERENCE_SERVER_LINUX_DATA_PLANE_H_

#include <iosfwd>
#include <memory>
#include <string>

#include "reference/hal/data_plane.h"
#include "reference/hal/message_fields.h"
#include "reference/log/log_function.h"

namespace reference {

/// A data plane that programs the Linux kernel. Moves the calling thread, which must be the
/// server's, into the network namespace `netns`, if that is not empty. Adopts the objects that an
/// earlier server left there; leaves its own objects when it is destroyed.
///
/// Throws `std::runtime_error`, with a text for the operator, if the kernel lacks a feature, if
/// privileges are missing, or if another server programs the namespace.
std::unique_ptr<DataPlane> MakeLinuxDataPlane(const InterfaceNames& interfaces,
                                              const std::string& netns, const LogFunction& log);

/// A data plane that writes the changes to `out`, as `ip` commands that make them in an empty
/// kernel with the devices of this network namespace. `out` must outlive it. Needs no privileges.
/// A commit throws `std::runtime_error` if nothing can be written.
std::unique_ptr<DataPlane> MakePrintingDataPlane(const InterfaceNames& interfaces,
                                                 std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_LINUX_DATA_PLANE_H_
