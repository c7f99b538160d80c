#ifndef ZUSKUX_REFERENCE_SERVER_ABANDONED_TABLES_H_
#define ZUSKUX_REFERENCE_SERVER_ABANDONED_TABLES_H_

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <memory>

namespace reference {

struct ServerState;

/// Empties the tables and the data plane after some time without a writer. Works in steps, between
/// which the server serves its clients.
///
/// `ServerState` owns it. Used on the server's thread.
class AbandonedTables {
 public:
  /// There is no writer yet. `state` must outlive it.
  AbandonedTables(boost::asio::io_context* io, ServerState* state, std::chrono::seconds keep);

  void WriterCame();
  void WriterLeft();

 private:
  void Empty();
  void Continue();
  // Calls `next` after this time, unless a writer comes or leaves before.
  void After(std::chrono::seconds time, void (AbandonedTables::*next)());

  ServerState& state_;
  const std::chrono::seconds keep_;
  boost::asio::steady_timer timer_;
  // Exists while the timer's handler may run: a timer that has already expired can no longer be
  // cancelled.
  std::shared_ptr<const bool> wait_;
  std::size_t entries_ = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_ABANDONED_TABLES_H_
