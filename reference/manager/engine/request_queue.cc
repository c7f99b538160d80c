#include "reference/manager/engine/request_queue.h"

#include <algorithm>

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
  const std::uint32_t id = object->key.id;
  Line& line = lines_.at(rank);
  if (line.withdrawn.erase(id) != 0) return;
  if (line.in_order.empty() || line.in_order.back() < id) {
    line.in_order.push_back(id);
  } else {
    line.others.insert(id);
  }
}

void RequestQueue::Remove(Object* object) {
  if (!object->queued_rank) return;
  const std::uint32_t id = object->key.id;
  Line& line = lines_.at(*object->queued_rank);
  object->queued_rank.reset();
  --size_;
  if (line.others.erase(id) != 0) return;
  if (line.in_order.front() != id) {
    line.withdrawn.insert(id);
    return;
  }
  do {
    line.in_order.pop_front();
  } while (!line.in_order.empty() && line.withdrawn.erase(line.in_order.front()) != 0);
}

ObjectKey RequestQueue::front() const {
  std::size_t rank = 0;
  while (lines_.at(rank).empty()) ++rank;
  return {KindOfRank(rank), lines_.at(rank).front()};
}

std::uint32_t RequestQueue::Line::front() const {
  if (in_order.empty()) return *others.begin();
  if (others.empty()) return in_order.front();
  return std::min(in_order.front(), *others.begin());
}

}  // namespace reference
