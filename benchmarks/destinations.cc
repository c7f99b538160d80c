#include "benchmarks/destinations.h"

#include <algorithm>

#include "reference/site/generate_site.h"

namespace bench {
namespace {

constexpr std::uint32_t kSeed = 1;

template <typename SiteObject>
void Add(const std::vector<SiteObject>& entries, Destinations* destinations) {
  for (const SiteObject& entry : entries) {
    reference::HaiObject made = reference::MakeHaiObject(entry);
    (*destinations)[made.index()].push_back(std::move(made));
  }
}

}  // namespace

Destinations MakeDestinations(std::size_t objects) {
  const reference::Site site = reference::GenerateSite(kSeed, objects);
  Destinations destinations;
  Add(site.vrfs, &destinations);
  Add(site.vlans, &destinations);
  Add(site.hosts, &destinations);
  Add(site.mpls, &destinations);
  Add(site.ecmps, &destinations);
  auto& mpls = destinations[static_cast<std::size_t>(reference::HalKind::kMpls)];
  std::stable_partition(mpls.begin(), mpls.end(), [](const reference::HaiObject& destination) {
    return reference::LayerOf(destination) < reference::Layer::kCircuit;
  });
  return destinations;
}

}  // namespace bench
