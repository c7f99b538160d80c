#include "reference/manager/engine/request_queue.h"

#include <algorithm>
#include <functional>

namespace reference {
namespace {

constexpr std::size_t kLayers = kKindOfLayer.size();
constexpr std::size_t kLastRank = 2 * kLayers - 1;

// By layer. Removals come last, in reverse order.
std::uint8_t RankOf(const Object& object) {
  const auto layer = static_cast<std::size_t>(LayerOf(object.content));
  return static_cast<std::uint8_t>(object.wanted ? layer : kLastRank - layer);
}

HalKind KindOfRank(std::size_t rank) {
  return kKindOfLayer.at(rank < kLayers ? rank : kLastRank - rank);
}

}  // namespace

void RequestQueue::Add(Object* object) {
  const std::uint8_t rank = RankOf(*object);
  if (object->queued_rank == rank) return;
  Remove(object);
  object->queued_rank = rank;
  ++size_;
  Line& line = lines_.at(rank);
  if (line.withdrawn.erase(object->key.id) != 0) return;
  line.ids.push_back(object->key.id);
  std::push_heap(line.ids.begin(), line.ids.end(), std::greater<>());
}

void RequestQueue::Remove(Object* object) {
  if (!object->queued_rank) return;
  Line& line = lines_.at(*object->queued_rank);
  object->queued_rank.reset();
  --size_;
  if (object->key.id != line.ids.front()) {
    line.withdrawn.insert(object->key.id);
    return;
  }
  do {
    std::pop_heap(line.ids.begin(), line.ids.end(), std::greater<>());
    line.ids.pop_back();
  } while (!line.ids.empty() && line.withdrawn.erase(line.ids.front()) != 0);
  if (line.ids.empty()) line.ids.shrink_to_fit();
}

ObjectKey RequestQueue::front() const {
  std::size_t rank = 0;
  while (lines_.at(rank).ids.empty()) ++rank;
  return {KindOfRank(rank), lines_.at(rank).ids.front()};
}

}  // namespace reference
