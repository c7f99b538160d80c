#ifndef ZUSKUX_REFERENCE_SERVER_KERNEL_CHECK_H_
#define ZUSKUX_REFERENCE_SERVER_KERNEL_CHECK_H_

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "reference/data_plane/comparison.h"
#include "reference/hal/hal_code.h"
#include "reference/hal/message_fields.h"
#include "reference/socket_client/server_contents.h"

namespace reference {

/// The kernel objects of an entry of a server's tables.
struct EntryInKernel {
  /// Why the kernel cannot represent the entry; success if it can.
  HalReturnCode refusal = kHalSuccess;
  /// Its kernel objects by name, as in `ObjectStates`. None for a refused entry and for VRF 0.
  std::vector<std::pair<std::string, ObjectState>> objects;
};

/// "next hop 10 as wanted, zd10 missing", or why the kernel cannot represent the entry. Empty if
/// the entry needs no object.
std::string EntryText(const EntryInKernel& entry);

/// A server's tables compared with the kernel.
struct KernelComparison {
  /// By kind and id.
  std::map<std::pair<HalKind, std::uint32_t>, EntryInKernel> entries;
  /// The objects of all entries, and those with our mark that no entry wants.
  ObjectStates objects;
};

/// Reads the kernel, which needs CAP_NET_ADMIN, and compares it with a server's tables. Moves the
/// calling thread into the network namespace `netns`, if that is not empty. Throws
/// `std::runtime_error`, with a text for the operator.
KernelComparison CompareWithKernel(const ServerContents& contents, const InterfaceNames& interfaces,
                                   const std::string& netns);

/// Prints one line for each entry, then one for each wrong object. Returns whether the kernel has
/// exactly what the tables want.
bool PrintCheck(const KernelComparison& comparison, std::ostream* out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_KERNEL_CHECK_H_
