#include "reference/manager/program/event_feed.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <utility>

#include "reference/manager/views/report.h"
#include "reference/text/json_text.h"

namespace reference {
namespace {

using Json = nlohmann::ordered_json;

}  // namespace

struct EventFeed::Queue {
  // Whole lines.
  std::string text;
  std::size_t lines = 0;
  std::uint64_t missed = 0;

  // After a gap, nothing is added until the client has got the number of dropped events.
  void Add(const std::string& line) {
    if (lines == kMaxQueued) {
      ++missed;
      return;
    }
    text += line;
    ++lines;
  }

  AnswerPiece Take() {
    AnswerPiece piece{std::exchange(text, {}), AnswerPiece::Next::kLater};
    lines = 0;
    if (missed != 0) {
      piece.text += JsonText({{"missed", std::exchange(missed, 0)}}, -1) + '\n';
    }
    return piece;
  }
};

void EventFeed::Add(const std::string& text) {
  if (HasFollowers()) AddLine(JsonText({{"event", text}}, -1) + '\n');
}

void EventFeed::Add(const Object& object) {
  if (HasFollowers()) AddLine(JsonText({{"object", RowAsJson(RowOf(object))}}, -1) + '\n');
}

Answer EventFeed::Follow() {
  auto queue = std::make_shared<Queue>();
  queues_.push_back(queue);
  return [queue] { return queue->Take(); };
}

bool EventFeed::HasFollowers() {
  queues_.erase(std::remove_if(queues_.begin(), queues_.end(),
                               [](const std::weak_ptr<Queue>& queue) { return queue.expired(); }),
                queues_.end());
  return !queues_.empty();
}

void EventFeed::AddLine(const std::string& line) {
  for (const std::weak_ptr<Queue>& weak : queues_) {
    if (const auto queue = weak.lock()) queue->Add(line);
  }
}

}  // namespace reference
