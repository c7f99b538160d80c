#include "reference/hal/embedded_hal.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "reference/support/mutex.h"

namespace reference {

/// The queue between the threads, and the server's thread with its tables. Never calls the host
/// while holding a lock.
class EmbeddedHal::Worker {
 public:
  explicit Worker(const EmbeddedHalOptions& options);
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker();

  void Start(HalReporter reporter);
  HalReturnCode Submit(HalRequest request);
  bool HasRoom();
  void PushMark(void (HalTables::*mark)());
  void Restart();
  HalConnectionCounters counters() const;
  HalLatencies latencies() const;
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

  // Runs on the server's thread, which holds no lock.
  void Run();
  std::optional<Reports> NextReports();
  void ReportServerFound();
  void CarryOutNextTask();
  void CarryOut(const Task& task, std::uint64_t generation);
  void CarryOutMark(const Task& task, std::uint64_t generation);
  void Report(const HalRequest& request, HalReturnCode code);

  // Called on any thread.
  void Push(Task task) ZUSKUX_REQUIRES(mutex_);
  void End(const HalRequest& request, HalReturnCode code) ZUSKUX_REQUIRES(mutex_);
  bool HasWork() const ZUSKUX_REQUIRES(mutex_);
  bool RoomDue() const ZUSKUX_REQUIRES(mutex_);

  const EmbeddedHalOptions options_;
  // Set before the thread starts.
  HalReporter reporter_;

  mutable Mutex tables_mutex_;
  HalTables tables_ ZUSKUX_GUARDED_BY(tables_mutex_);

  mutable Mutex mutex_;
  std::condition_variable wake_;
  std::deque<Task> queue_ ZUSKUX_GUARDED_BY(mutex_);
  std::vector<Ended> ended_ ZUSKUX_GUARDED_BY(mutex_);
  bool server_found_due_ ZUSKUX_GUARDED_BY(mutex_) = true;
  bool room_wanted_ ZUSKUX_GUARDED_BY(mutex_) = false;
  bool stopping_ ZUSKUX_GUARDED_BY(mutex_) = false;
  std::uint64_t generation_ ZUSKUX_GUARDED_BY(mutex_) = 0;
  bool carrying_out_ ZUSKUX_GUARDED_BY(mutex_) = false;
  HalConnectionCounters counters_ ZUSKUX_GUARDED_BY(mutex_);
  LatencyHistogram queue_latency_ ZUSKUX_GUARDED_BY(mutex_);
  LatencyHistogram hal_latency_ ZUSKUX_GUARDED_BY(mutex_);

  std::thread thread_;
};

EmbeddedHal::Worker::Worker(const EmbeddedHalOptions& options)
    : options_(options), tables_(options.table_capacity) {}

EmbeddedHal::Worker::~Worker() {
  {
    const MutexLock lock(&mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void EmbeddedHal::Worker::Start(HalReporter reporter) {
  reporter_ = std::move(reporter);
  thread_ = std::thread(&Worker::Run, this);
}

HalReturnCode EmbeddedHal::Worker::Submit(HalRequest request) {
  const MutexLock lock(&mutex_);
  ++counters_.requests;
  if (queue_.size() >= options_.queue_capacity) {
    End(request, kHalQueueFull);
    return kHalQueueFull;
  }
  Push({std::move(request)});
  return kHalSuccess;
}

bool EmbeddedHal::Worker::HasRoom() {
  const MutexLock lock(&mutex_);
  if (queue_.size() < options_.queue_capacity) return true;
  room_wanted_ = true;
  return false;
}

void EmbeddedHal::Worker::PushMark(void (HalTables::*mark)()) {
  const MutexLock lock(&mutex_);
  Push({HalRequest(), mark});
}

void EmbeddedHal::Worker::Restart() {
  const MutexLock lock(&mutex_);
  ++generation_;
  for (const Task& task : queue_) {
    if (task.mark == nullptr) End(task.request, kHalServerLost);
  }
  queue_.clear();
  server_found_due_ = true;
  wake_.notify_one();
}

HalConnectionCounters EmbeddedHal::Worker::counters() const {
  const MutexLock lock(&mutex_);
  HalConnectionCounters counters = counters_;
  counters.connected = counters.servers_found != 0;
  counters.queued = queue_.size();
  counters.unfinished = queue_.size() + ended_.size() + (carrying_out_ ? 1 : 0);
  return counters;
}

HalLatencies EmbeddedHal::Worker::latencies() const {
  const MutexLock lock(&mutex_);
  return {queue_latency_.Summary(), {}, hal_latency_.Summary()};
}

HalTables EmbeddedHal::Worker::SnapshotTables() const {
  const MutexLock lock(&tables_mutex_);
  return tables_;
}

void EmbeddedHal::Worker::Push(Task task) {
  queue_.push_back(std::move(task));
  counters_.queued_peak = std::max(counters_.queued_peak, queue_.size());
  wake_.notify_one();
}

void EmbeddedHal::Worker::End(const HalRequest& request, HalReturnCode code) {
  ended_.push_back({WithoutPayload(request), code});
  wake_.notify_one();
}

bool EmbeddedHal::Worker::HasWork() const {
  return stopping_ || !queue_.empty() || !ended_.empty() || server_found_due_ || RoomDue();
}

bool EmbeddedHal::Worker::RoomDue() const {
  return room_wanted_ && queue_.size() <= options_.queue_capacity / 2;
}

void EmbeddedHal::Worker::Run() {
  while (const auto reports = NextReports()) {
    for (const Ended& ended : reports->ended) Report(ended.request, ended.code);
    if (reports->server_found) ReportServerFound();
    if (reports->room) reporter_.Room();
    CarryOutNextTask();
  }
}

// Waits for something to do; returns nothing when the thread must end. Takes the ended requests and
// the server-found report in one step, because a restart adds them in one.
std::optional<EmbeddedHal::Worker::Reports> EmbeddedHal::Worker::NextReports() {
  const MutexLock lock(&mutex_);
  while (!HasWork()) mutex_.Wait(&wake_);
  if (stopping_) return std::nullopt;
  Reports reports;
  reports.ended = std::exchange(ended_, {});
  reports.server_found = std::exchange(server_found_due_, false);
  reports.room = RoomDue();
  if (reports.room) room_wanted_ = false;
  return reports;
}

void EmbeddedHal::Worker::ReportServerFound() {
  {
    const MutexLock lock(&tables_mutex_);
    tables_.Clear();
  }
  {
    const MutexLock lock(&mutex_);
    // Another restart may have ended requests whose results are still due; those come first.
    if (server_found_due_ || stopping_) return;
    ++counters_.servers_found;
  }
  reporter_.ServerFound();
}

void EmbeddedHal::Worker::CarryOutNextTask() {
  Task task;
  std::uint64_t generation = 0;
  {
    const MutexLock lock(&mutex_);
    // After a restart, the queue belongs to the new server, which must be reported as found first.
    if (queue_.empty() || server_found_due_ || stopping_) return;
    task = std::move(queue_.front());
    queue_.pop_front();
    generation = generation_;
    carrying_out_ = true;
  }
  if (task.mark == nullptr) {
    CarryOut(task, generation);
  } else {
    CarryOutMark(task, generation);
  }
  const MutexLock lock(&mutex_);
  carrying_out_ = false;
}

void EmbeddedHal::Worker::CarryOutMark(const Task& task, std::uint64_t generation) {
  {
    const MutexLock lock(&tables_mutex_);
    (tables_.*task.mark)();
  }
  if (task.mark != &HalTables::EndReinstall) return;
  {
    const MutexLock lock(&mutex_);
    if (stopping_ || generation != generation_) return;
  }
  // The server's tables are the only copy, so nothing can differ.
  reporter_.ReinstallEnded(true);
}

void EmbeddedHal::Worker::CarryOut(const Task& task, std::uint64_t generation) {
  const HalRequest& request = task.request;
  const auto taken = Clock::now();
  if (options_.before_apply) options_.before_apply(request);
  HalReturnCode code = kHalSuccess;
  {
    const MutexLock lock(&tables_mutex_);
    code = tables_.Apply(request);
  }
  {
    const MutexLock lock(&mutex_);
    queue_latency_.Add(taken - task.submitted);
    hal_latency_.Add(Clock::now() - taken);
    if (generation != generation_) {
      if (HasResult(request.operation)) ++counters_.late_results;
      code = kHalServerLost;
    }
  }
  Report(request, code);
}

void EmbeddedHal::Worker::Report(const HalRequest& request, HalReturnCode code) {
  {
    const MutexLock lock(&mutex_);
    if (stopping_) return;
    if (HasResult(request.operation)) ++counters_.results;
  }
  reporter_.Result(request, code);
}

EmbeddedHal::EmbeddedHal(const EmbeddedHalOptions& options)
    : worker_(std::make_unique<Worker>(options)) {}

EmbeddedHal::~EmbeddedHal() = default;

void EmbeddedHal::Start(HalReports reports) {
  worker_->Start(HalReporter(std::move(reports), observer()));
}

bool EmbeddedHal::HasRoom() { return worker_->HasRoom(); }

void EmbeddedHal::SubmitBeginReinstall() { worker_->PushMark(&HalTables::BeginReinstall); }

void EmbeddedHal::SubmitEndReinstall() { worker_->PushMark(&HalTables::EndReinstall); }

HalConnectionCounters EmbeddedHal::counters() const { return worker_->counters(); }

HalLatencies EmbeddedHal::latencies() const { return worker_->latencies(); }

void EmbeddedHal::Restart() { worker_->Restart(); }

HalTables EmbeddedHal::SnapshotTables() const { return worker_->SnapshotTables(); }

HalReturnCode EmbeddedHal::Submit(HalRequest request) {
  return worker_->Submit(std::move(request));
}

}  // namespace reference
