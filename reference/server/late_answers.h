#ifndef ZUSKUX_REFERENCE_SERVER_LATE_ANSWERS_H_
#define ZUSKUX_REFERENCE_SERVER_LATE_ANSWERS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "reference/server/server_faults.h"

namespace reference {

/// The answers to a client that a fault keeps back. Used on the server's thread.
class LateAnswers {
 public:
  using Time = ServerFaults::Time;

  void Add(Time due, std::uint32_t rank, std::string answer);
  /// Appends what is due at `now` to `out`: by time, then rank, then order of arrival.
  void TakeDue(Time now, std::string* out);

  bool empty() const { return answers_.empty(); }
  /// When the first one is due; there is one.
  Time next() const { return answers_.begin()->first.first; }
  /// Size of all that is kept.
  std::size_t bytes() const { return bytes_; }

 private:
  std::multimap<std::pair<Time, std::uint32_t>, std::string> answers_;
  std::size_t bytes_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_LATE_ANSWERS_H_
