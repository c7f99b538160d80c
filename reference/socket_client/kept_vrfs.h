#ifndef ZUSKUX_REFERENCE_SOCKET_CLIENT_KEPT_VRFS_H_
#define ZUSKUX_REFERENCE_SOCKET_CLIENT_KEPT_VRFS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>

#include "reference/hal/hal_request.h"

namespace reference {

/// VRF requests that wait for a server, in order; only the newest for each VRF. Used by one thread
/// at a time.
class KeptVrfs {
 public:
  std::size_t size() const { return requests_.size(); }
  /// Payload bytes.
  std::size_t bytes() const { return bytes_; }
  bool Contains(std::uint32_t id) const { return places_.count(id) != 0; }

  /// Keeps the request, replacing an older one for the same VRF.
  void Keep(HalRequest request);

  /// Passes all of them on, oldest first, and forgets them.
  void Release(const std::function<void(const HalRequest& request)>& take);

 private:
  std::map<std::uint64_t, HalRequest> requests_;
  // The place of the request for each VRF id.
  std::unordered_map<std::uint32_t, std::uint64_t> places_;
  std::uint64_t next_place_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SOCKET_CLIENT_KEPT_VRFS_H_
