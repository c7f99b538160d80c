#ifndef ZUSKUX_REFERENCE_SERVER_LATE_ANSWERS_H_
#define ZUSKUX_REFERENCE_SERVER_LATE_ANSWERS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "reference/server/server_faults.h"

namespace reference {

/// The answers to a client that a fault delays. Used on the server's thread.
class LateAnswers {
 public:
  using Time = ServerFaults::Time;

  void Add(Time due, std::uint32_t rank, std::string answer);
  /// Appends the answers due at `now` to `out`, ordered by time, then rank, then arrival.
  void TakeDue(Time now, std::string* out);

  bool empty() const { return answers_.empty(); }
  /// When the first answer is due. Do not call if there is none.
  Time next() const { return answers_.begin()->first.first; }
  /// Size of all delayed answers.
  std::size_t bytes() const { return bytes_; }

 private:
  std::multimap<std::pair<Time, std::uint32_t>, std::string> answers_;
  std::size_t bytes_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_LATE_ANSWERS_H_
