#include "reference/manager/engine/request_queue.h"

#include <limits>

namespace reference {
namespace {

constexpr std::uint8_t kLastRank = std::numeric_limits<std::uint8_t>::max();

// By layer. Removals come last, in reverse order.
std::uint8_t RankOf(const Object& object) {
  const auto layer = static_cast<std::uint8_t>(LayerOf(object.content));
  return object.wanted ? layer : static_cast<std::uint8_t>(kLastRank - layer);
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
