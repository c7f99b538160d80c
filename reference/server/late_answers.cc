#include "reference/server/late_answers.h"

namespace reference {

void LateAnswers::Add(Time due, std::uint32_t rank, std::string answer) {
  bytes_ += answer.size();
  answers_.emplace(std::pair(due, rank), std::move(answer));
}

void LateAnswers::TakeDue(Time now, std::string* out) {
  while (!answers_.empty() && next() <= now) {
    const auto first = answers_.begin();
    bytes_ -= first->second.size();
    out->append(first->second);
    answers_.erase(first);
  }
}

}  // namespace reference
