#include "reference/socket_client/kept_vrfs.h"

#include <utility>

namespace reference {

void KeptVrfs::Keep(HalRequest request) {
  const auto [place, is_new] = places_.try_emplace(request.id, next_place_);
  if (!is_new) {
    const auto superseded = requests_.find(place->second);
    bytes_ -= superseded->second.payload.size();
    requests_.erase(superseded);
    place->second = next_place_;
  }
  bytes_ += request.payload.size();
  requests_.emplace(next_place_++, std::move(request));
}

void KeptVrfs::Release(const std::function<void(const HalRequest& request)>& take) {
  const std::map<std::uint64_t, HalRequest> requests = std::exchange(requests_, {});
  places_.clear();
  bytes_ = 0;
  for (const auto& [place, request] : requests) take(request);
}

}  // namespace reference
