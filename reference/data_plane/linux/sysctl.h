#ifndef ZUSKUX_REFERENCE_DATA_PLANE_LINUX_SYSCTL_H_
#define ZUSKUX_REFERENCE_DATA_PLANE_LINUX_SYSCTL_H_

#include <string>

namespace reference {

// Settings that netlink cannot reach: files below /proc/sys/net, which shows the calling thread's
// network namespace.

/// The value without the newline; empty if it cannot be read.
std::string ReadSysctl(const std::string& path);

/// Returns 0 or an errno value.
int WriteSysctl(const std::string& path, const std::string& value);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_DATA_PLANE_LINUX_SYSCTL_H_
