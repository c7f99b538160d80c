#ifndef ZUSKUX_REFERENCE_DATA_PLANE_IP_COMMANDS_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_IP_COMMANDS_H_

#include <string>
#include <vector>

#include "reference/data_plane/kernel_objects.h"

namespace reference {

/// The `ip` and `sysctl` commands that make the same change, one per element, quoted for a POSIX
/// shell.
std::vector<std::string> IpCommands(const KernelChange& change);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_IP_COMMANDS_H_
