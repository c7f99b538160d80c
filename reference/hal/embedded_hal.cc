#include "reference/hal/embedded_hal.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace reference {
namespace {

// A batch takes at most a 64th of the queue, because room is reported between two batches.
constexpr std::size_t kBatchesInQueue = 64;

}  // namespace

EmbeddedHal::EmbeddedHal(const EmbeddedHalOptions& options)
    : options_(options), tables_(options.table_capacity) {}

EmbeddedHal::~EmbeddedHal() {
  {
    const MutexLock lock(&mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void EmbeddedHal::Start(HalReports reports) {
  reporter_ = HalReporter(std::move(reports), observer());
  thread_ = std::thread(&EmbeddedHal::Run, this);
}

HalReturnCode EmbeddedHal::Submit(HalRequest* request) {
  const MutexLock lock(&mutex_);
  ++counters_.requests;
  if (Queued() >= options_.queue_capacity) {
    End(*request, kHalQueueFull);
    return kHalQueueFull;
  }
  Push({std::move(*request)});
  return kHalSuccess;
}

bool EmbeddedHal::HasRoom() {
  const MutexLock lock(&mutex_);
  if (Queued() < options_.queue_capacity) return true;
  room_wanted_ = true;
  return false;
}

void EmbeddedHal::PushMark(void (HalTables::*mark)()) {
  const MutexLock lock(&mutex_);
  Push({HalRequest(), mark});
}

void EmbeddedHal::Restart() {
  const MutexLock lock(&mutex_);
  ++generation_;
  for (const Task& task : queue_) {
    if (task.mark == nullptr) End(task.request, kHalServerLost);
  }
  queue_.clear();
  server_found_due_ = true;
  wake_.notify_one();
}

HalConnectionCounters EmbeddedHal::counters() const {
  const MutexLock lock(&mutex_);
  HalConnectionCounters counters = counters_;
  counters.connected = counters.servers_found != 0;
  counters.results = results_;
  counters.queued = Queued();
  counters.unfinished = queue_.size() + ended_.size() + unfinished_in_batch_;
  const MutexLock server_lock(&server_mutex_);
  counters.late_results = late_results_;
  return counters;
}

HalLatencies EmbeddedHal::latencies() const {
  const MutexLock lock(&server_mutex_);
  return {queue_latency_.Summary(), {}, hal_latency_.Summary()};
}

FoundServer EmbeddedHal::server() const { return {"embedded", generation_}; }

HalTables EmbeddedHal::SnapshotTables() const {
  const MutexLock lock(&server_mutex_);
  return tables_;
}

void EmbeddedHal::Push(Task task) {
  queue_.push_back(std::move(task));
  counters_.queued_peak = std::max(counters_.queued_peak, Queued());
  wake_.notify_one();
}

void EmbeddedHal::End(const HalRequest& request, HalReturnCode code) {
  ended_.push_back({WithoutPayload(request), code});
  wake_.notify_one();
}

bool EmbeddedHal::HasWork() const {
  return stopping_ || !queue_.empty() || !ended_.empty() || server_found_due_ || RoomDue();
}

// With the tasks of the batch that wait for the ones before them. After a restart, these have
// ended.
std::size_t EmbeddedHal::Queued() const {
  const std::size_t unfinished = unfinished_in_batch_;
  const bool waits = unfinished != 0 && batch_generation_ == generation_;
  return queue_.size() + (waits ? unfinished - 1 : 0);
}

bool EmbeddedHal::RoomDue() const {
  return room_wanted_ && queue_.size() <= options_.queue_capacity / 2;
}

void EmbeddedHal::Run() {
  while (const auto reports = NextReports()) {
    for (const Ended& ended : reports->ended) Report(ended.request, ended.code);
    if (reports->server_found) ReportServerFound();
    if (reports->room) reporter_.Room();
    CarryOutNextTasks();
  }
}

// Waits for something to do; returns nothing when the thread must end. Takes the ended requests and
// the server-found report in one step, because a restart adds them in one.
std::optional<EmbeddedHal::Reports> EmbeddedHal::NextReports() {
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

void EmbeddedHal::ReportServerFound() {
  {
    const MutexLock lock(&server_mutex_);
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

void EmbeddedHal::CarryOutNextTasks() {
  const std::uint64_t generation = TakeBatch();
  for (const Task& task : batch_) {
    if (stopping_) return;
    if (task.mark != nullptr) {
      CarryOutMark(task, generation);
    } else if (generation == generation_) {
      CarryOut(task, generation);
    } else {
      Report(task.request, kHalServerLost);
    }
    --unfinished_in_batch_;
  }
}

// Returns the batch's generation.
std::uint64_t EmbeddedHal::TakeBatch() {
  batch_.clear();
  const MutexLock lock(&mutex_);
  // After a restart, the queue belongs to the new server, which must be reported as found first.
  if (server_found_due_ || stopping_) return generation_;
  const std::size_t most = std::max<std::size_t>(options_.queue_capacity / kBatchesInQueue, 1);
  const auto end = queue_.begin() + static_cast<std::ptrdiff_t>(std::min(queue_.size(), most));
  batch_.assign(std::move_iterator(queue_.begin()), std::move_iterator(end));
  queue_.erase(queue_.begin(), end);
  unfinished_in_batch_ = batch_.size();
  batch_generation_ = generation_;
  return generation_;
}

void EmbeddedHal::CarryOutMark(const Task& task, std::uint64_t generation) {
  {
    const MutexLock lock(&server_mutex_);
    (tables_.*task.mark)();
  }
  if (task.mark != &HalTables::EndReinstall || stopping_ || generation != generation_) return;
  // The server's tables are the only copy, so nothing can differ.
  reporter_.ReinstallEnded(true);
}

void EmbeddedHal::CarryOut(const Task& task, std::uint64_t generation) {
  const HalRequest& request = task.request;
  const auto taken = Clock::now();
  if (options_.before_apply) options_.before_apply(request);
  HalReturnCode code = kHalSuccess;
  {
    const MutexLock lock(&server_mutex_);
    code = tables_.Apply(request);
    queue_latency_.Add(taken - task.submitted);
    hal_latency_.Add(Clock::now() - taken);
    if (generation != generation_) {
      if (HasResult(request.operation)) ++late_results_;
      code = kHalServerLost;
    }
  }
  Report(request, code);
}

void EmbeddedHal::Report(const HalRequest& request, HalReturnCode code) {
  if (stopping_) return;
  if (HasResult(request.operation)) ++results_;
  reporter_.Result(request, code);
}

}  // namespace reference
