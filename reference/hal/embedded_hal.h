#ifndef ZUSKUX_REFERENCE_HAL_EMBEDDED_HAL_H_
#define ZUSKUX_REFERENCE_HAL_EMBEDDED_HAL_H_

#include <cstddef>
#include <functional>
#include <memory>

#include "reference/hal/hal_connection.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/hal_tables.h"

namespace reference {

struct EmbeddedHalOptions {
  /// Entries that each table takes.
  std::size_t table_capacity = 1 << 21;
  /// Requests that wait at most; further ones end with `kHalQueueFull`. At least 1.
  std::size_t queue_capacity = 4096;
  /// For tests and demonstrations: called on the server's thread before each request is applied, so
  /// that the server can be slowed down or held inside a request. No lock is held.
  std::function<void(const HalRequest&)> before_apply;
};

/// A HAL client and its server within the process: requests are copied in the caller's thread and
/// applied to tables in a thread of the HAL's own, which also reports. Owned by the host program.
class EmbeddedHal : public HalConnection {
 public:
  explicit EmbeddedHal(const EmbeddedHalOptions& options);
  /// Stops the thread; requests that wait are dropped without a result. Not inside a report.
  ~EmbeddedHal() override;

  void Start(HalReports reports) override;
  /// After false, `room` is reported when half of the queue is free.
  bool HasRoom() override;
  HalConnectionCounters counters() const override;
  HalLatencies latencies() const override;

  /// Restarts the server: the outstanding requests end with `kHalServerLost`, what the old server
  /// still answers is dropped and counted, the tables are emptied and the server is found again.
  /// What is sent after this call goes to the new server. Restarts in quick succession may end in
  /// one report of the server found. Callable on any thread, before `Start` and inside a report
  /// too.
  void Restart();

  /// A copy of the tables, taken between two requests. Callable on any thread.
  HalTables SnapshotTables() const;

 protected:
  HalReturnCode Submit(HalRequest request) override;
  void SubmitBeginReinstall() override;
  void SubmitEndReinstall() override;

 private:
  class Worker;
  std::unique_ptr<Worker> worker_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_EMBEDDED_HAL_H_
