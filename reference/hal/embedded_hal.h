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
  /// Maximum number of entries in each table.
  std::size_t table_capacity = 1 << 21;
  /// Maximum number of queued requests, at least 1; further ones end with `kHalQueueFull`.
  std::size_t queue_capacity = 4096;
  /// For tests and demonstrations: called on the server's thread, without a lock, before each
  /// request is applied, in order to slow the server down or block it inside a request.
  std::function<void(const HalRequest&)> before_apply;
};

/// A HAL client with its server in the same process. Copies requests on the caller's thread. The
/// HAL's own thread applies them to tables and reports. Owned by the host program.
class EmbeddedHal : public HalConnection {
 public:
  explicit EmbeddedHal(const EmbeddedHalOptions& options);
  /// Stops the thread and drops queued requests without a result. Do not call inside a report.
  ~EmbeddedHal() override;

  void Start(HalReports reports) override;
  /// After returning false, reports `room` once half of the queue is free.
  bool HasRoom() override;
  HalConnectionCounters counters() const override;
  HalLatencies latencies() const override;

  /// Restarts the server. The outstanding requests end with `kHalServerLost`, late answers of the
  /// old server are dropped and counted, the tables are emptied, and the server is reported as
  /// found again. Requests sent after this call go to the new server. Several restarts in quick
  /// succession may share one report. Callable on any thread, before `Start` and inside a report
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
