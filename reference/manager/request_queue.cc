#include "reference/manager/request_queue.h"

#include <algorithm>
#include <array>

namespace reference {
namespace {

enum class Step : std::uint8_t { kVrf, kVlan, kHost, kEcmp, kTunnel, kCircuit };
constexpr std::array kInstallOrder = {Step::kVrf,  Step::kVlan,   Step::kHost,
                                      Step::kEcmp, Step::kTunnel, Step::kCircuit};
constexpr std::array kRemovalOrder = {Step::kEcmp, Step::kCircuit, Step::kTunnel,
                                      Step::kHost, Step::kVlan,    Step::kVrf};

Step StepOf(const Object& object) {
  static constexpr std::array<Step, kHalKinds> kSteps = {Step::kVrf, Step::kVlan, Step::kHost,
                                                         Step::kEcmp, Step::kTunnel};
  if (IsVirtualCircuit(object.content)) return Step::kCircuit;
  return kSteps.at(static_cast<std::size_t>(object.key.kind));
}

std::uint8_t RankOf(const Object& object) {
  const auto& order = object.wanted ? kInstallOrder : kRemovalOrder;
  const auto* const place = std::find(order.begin(), order.end(), StepOf(object));
  const auto rank = static_cast<std::size_t>(place - order.begin());
  return static_cast<std::uint8_t>(object.wanted ? rank : kInstallOrder.size() + rank);
}

}  // namespace

void RequestQueue::Add(Object* object) {
  const std::uint8_t rank = RankOf(*object);
  if (object->queued_rank == rank) return;
  Remove(object);
  object->queued_rank = rank;
  entries_.emplace(*object->queued_rank, object->key);
}

void RequestQueue::Remove(Object* object) {
  if (!object->queued_rank) return;
  entries_.erase({*object->queued_rank, object->key});
  object->queued_rank.reset();
}

}  // namespace reference
