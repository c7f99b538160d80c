#ifndef ZUSKUX_REFERENCE_SERVER_DATA_PLANE_WATCH_H_
#define ZUSKUX_REFERENCE_SERVER_DATA_PLANE_WATCH_H_

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "reference/hal/data_plane.h"
#include "reference/log/log_function.h"

namespace reference {

/// Limits repairs of the hardware, so that a program that keeps changing it costs little: no more
/// than five repairs a second after the first 50, and at most a tenth of the time after the first
/// 30 s. Those are for hardware that has lost everything: it is complete again without a pause.
///
/// A value.
class RepairBudget {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// When the next repair may begin.
  Time next() const { return next_; }

  /// Records a repair that began and ended at these times.
  void Spend(Time begin, Time end);

 private:
  Time next_;
  // Each repair costs 200 ms, and ten times its duration; both credits are limited.
  Time paid_until_;
  Time time_paid_until_;
};

/// Repairs what another program has changed in the hardware, and checks everything at regular
/// intervals. While a check or a repair fails, checks everything again after 1 s, 2 s and so on up
/// to a minute. Logs the differences, at most one line a minute, and reports the outcome of each
/// check.
///
/// The server owns it. Used on the thread that runs the `io_context`.
class DataPlaneWatch {
 public:
  using TakeOutcome = std::function<void(const Repair&)>;

  /// `data_plane` must outlive it. `audit` is the interval between two checks; 0 for none.
  DataPlaneWatch(boost::asio::io_context* io, DataPlane* data_plane, std::chrono::seconds audit,
                 LogFunction log, TakeOutcome take_outcome);
  DataPlaneWatch(const DataPlaneWatch&) = delete;
  DataPlaneWatch& operator=(const DataPlaneWatch&) = delete;
  ~DataPlaneWatch();

  /// Checks all of the hardware as soon as the budget allows.
  void CheckSoon();

  /// The number of objects that have differed so far.
  std::uint64_t differences() const { return differences_; }

 private:
  using ErrorCode = boost::system::error_code;
  using Time = RepairBudget::Time;

  // A handler that does nothing after an error, nor after the watch's end: a timer that has already
  // expired can no longer be cancelled.
  template <typename Handler>
  auto WhileAlive(Handler handler) const {
    return [handler, alive = std::weak_ptr<const bool>(alive_)](const ErrorCode& error) {
      if (!error && !alive.expired()) handler();
    };
  }

  void AwaitChange();
  void AwaitAudit();
  void Schedule(std::chrono::milliseconds delay);
  void AwaitRetry(bool failed);
  void CheckNow();
  void Report(const Repair& repair);
  void ReportFailure(const std::string& reason);

  const std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
  DataPlane& data_plane_;
  const std::chrono::seconds audit_;
  const LogFunction log_;
  const TakeOutcome take_outcome_;
  boost::asio::posix::stream_descriptor changes_;
  boost::asio::steady_timer repair_timer_;
  boost::asio::steady_timer audit_timer_;
  boost::asio::steady_timer retry_timer_;
  // Until the next attempt after a failed repair.
  std::chrono::seconds retry_pause_;
  bool scheduled_ = false;
  // Whether the next check is of everything, not only of what another program has changed.
  bool check_all_ = false;
  RepairBudget budget_;
  std::uint64_t differences_ = 0;
  // The differences since the last log line.
  std::size_t unreported_ = 0;
  Time reported_;
  Time failure_reported_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_DATA_PLANE_WATCH_H_
