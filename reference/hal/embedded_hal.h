#ifndef ZUSKUX_REFERENCE_HAL_EMBEDDED_HAL_H_
#define ZUSKUX_REFERENCE_HAL_EMBEDDED_HAL_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/hal_tables.h"
#include "reference/support/mutex.h"

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
/// HAL's own thread takes them in batches, applies them to tables and reports, without holding a
/// lock. Owned by the host program.
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
  /// Each restart begins a generation.
  FoundServer server() const override;

  /// Restarts the server. The outstanding requests end with `kHalServerLost`, late answers of the
  /// old server are dropped and counted, the tables are emptied, and the server is reported as
  /// found again. Requests sent after this call go to the new server. Several restarts in quick
  /// succession may share one report. Callable on any thread, before `Start` and inside a report
  /// too.
  void Restart();

  /// A copy of the tables, taken between two requests. Callable on any thread.
  HalTables SnapshotTables() const;

 private:
  using Clock = std::chrono::steady_clock;

  /// A request or a mark: the begin or the end of a reinstall.
  struct Task {
    HalRequest request;
    /// Null for a request.
    void (HalTables::*mark)() = nullptr;
    Clock::time_point submitted = Clock::now();
  };

  /// A request that ended without reaching the server; without its payload.
  struct Ended {
    HalRequest request;
    HalReturnCode code = kHalSuccess;
  };

  /// The reports due before the next task, in the order of the members.
  struct Reports {
    std::vector<Ended> ended;
    bool server_found = false;
    bool room = false;
  };

  HalReturnCode Submit(HalRequest* request) override;
  void SubmitBeginReinstall() override { PushMark(&HalTables::BeginReinstall); }
  void SubmitEndReinstall() override { PushMark(&HalTables::EndReinstall); }

  // Run on the server's thread, which holds no lock.
  void Run();
  std::optional<Reports> NextReports();
  void ReportServerFound();
  void CarryOutNextTasks();
  std::uint64_t TakeBatch();
  void CarryOut(const Task& task, std::uint64_t generation);
  void CarryOutMark(const Task& task, std::uint64_t generation);
  void Report(const HalRequest& request, HalReturnCode code);

  // Called on any thread.
  void PushMark(void (HalTables::*mark)());
  void Push(Task task) ZUSKUX_REQUIRES(mutex_);
  void End(const HalRequest& request, HalReturnCode code) ZUSKUX_REQUIRES(mutex_);
  bool HasWork() const ZUSKUX_REQUIRES(mutex_);
  bool RoomDue() const ZUSKUX_REQUIRES(mutex_);
  std::size_t Queued() const ZUSKUX_REQUIRES(mutex_);

  const EmbeddedHalOptions options_;
  // Set before the thread starts.
  HalReporter reporter_;

  // What changes with each task. Requests do not lock it, so they do not wait for the server.
  mutable Mutex server_mutex_;
  HalTables tables_ ZUSKUX_GUARDED_BY(server_mutex_);
  std::uint64_t late_results_ ZUSKUX_GUARDED_BY(server_mutex_) = 0;
  LatencyHistogram queue_latency_ ZUSKUX_GUARDED_BY(server_mutex_);
  LatencyHistogram hal_latency_ ZUSKUX_GUARDED_BY(server_mutex_);

  mutable Mutex mutex_;
  std::condition_variable wake_;
  std::deque<Task> queue_ ZUSKUX_GUARDED_BY(mutex_);
  std::vector<Ended> ended_ ZUSKUX_GUARDED_BY(mutex_);
  bool server_found_due_ ZUSKUX_GUARDED_BY(mutex_) = true;
  bool room_wanted_ ZUSKUX_GUARDED_BY(mutex_) = false;
  // Of the server to which the batch belongs.
  std::uint64_t batch_generation_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  // Without the numbers of results.
  HalConnectionCounters counters_ ZUSKUX_GUARDED_BY(mutex_);

  // Changed with `mutex_` held, but read for each task without it.
  std::atomic<bool> stopping_ = false;
  std::atomic<std::uint64_t> generation_ = 0;

  // Used by the server's thread.
  std::vector<Task> batch_;
  // Changed by the server's thread: the tasks of the batch that have not ended, the first of which
  // is being carried out; and the results.
  std::atomic<std::size_t> unfinished_in_batch_ = 0;
  std::atomic<std::uint64_t> results_ = 0;

  std::thread thread_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_EMBEDDED_HAL_H_
