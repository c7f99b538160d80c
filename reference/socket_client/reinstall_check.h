#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_REINSTALL_CHECK_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_REINSTALL_CHECK_H_

#include <tsl/robin_map.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "reference/hal/hal_request.h"
#include "reference/hal/hal_tables.h"
#include "reference/support/id_hash.h"
#include "wire.pb.h"

namespace reference {

/// The hashes of entries, by id.
using EntryHashes = tsl::robin_map<std::uint32_t, std::uint64_t, IdHash>;

/// What a server acknowledged within a reinstall, and the VRFs sent to it, for comparison with the
/// summary of its tables at the end. Holds a hash per entry from the first acknowledgement to the
/// end. Used by one thread at a time.
class ReinstallCheck {
 public:
  /// Records a request of reinstall number `reinstall`, which is not 0: one that succeeded, or one
  /// for a VRF. A higher number starts over. `hash` is the entry's `EntryHash`, by the
  /// function of the summary.
  void Acknowledge(std::uint32_t reinstall, const HalRequest& request, std::uint64_t hash);

  /// The differences between reinstall `reinstall` and the server: "vlan 8 here, 7 there; host 40
  /// with other content". Nothing if there are none. Forgets the reinstall.
  std::optional<std::string> End(std::uint32_t reinstall, const wire::TableSummary& summary);

  /// Forgets everything.
  void Clear();

 private:
  std::uint32_t reinstall_ = 0;
  // For each kind, the hashes by id.
  std::array<EntryHashes, kHalKinds> hashes_;
};

/// The digests of a summary that uses `function`.
HalDigests DigestsOf(const wire::TableSummary& summary, EntryHashFunction function);

/// "vrf 2, vlan 8, host 40, ecmp 6, mpls 20 (3 removed)"
std::string SummaryText(const wire::TableSummary& summary);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_REINSTALL_CHECK_H_
