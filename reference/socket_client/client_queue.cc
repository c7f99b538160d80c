#include "reference/socket_client/client_queue.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "reference/hal/hal_tables.h"

namespace reference {
namespace {

constexpr std::size_t kMaxEntries = std::size_t{1} << 23;
// Whenever so many bytes more wait, the host writes them, so that the server can work on the first
// of many requests while the host makes the others.
constexpr std::size_t kEnoughToWrite = std::size_t{8} * 1024;

}  // namespace

ClientQueue::ClientQueue(const SocketHalOptions& options)
    : max_entries_(std::clamp<std::size_t>(options.queue_entries, 1, kMaxEntries)),
      max_bytes_(options.queue_bytes),
      deadline_(options.deadline),
      outstanding_(max_entries_, options.first_sequence) {}

HostQueue::Submission ClientQueue::Submit(const HalRequest& request) {
  const MutexLock lock(&mutex_);
  ++counters_.requests;
  if (const auto refusal = Refusal(request)) {
    End(request, *refusal);
    return {*refusal, WakeFor(HasWork()) ? Next::kWakeConnection : Next::kNothing};
  }
  const bool alone = outstanding_.size() == 0 && undelivered_ == 0 && frames_.empty() && !writing_;
  const std::size_t before = frames_.size();
  Accept(request);
  const bool enough = !writing_ && before / kEnoughToWrite < frames_.size() / kEnoughToWrite;
  if (enough || (alone && server_ == Server::kFound)) return {kHalSuccess, Next::kWriteNow};
  return {kHalSuccess, WakeFor(HasWork()) ? Next::kWakeConnection : Next::kNothing};
}

std::optional<HalReturnCode> ClientQueue::Refusal(const HalRequest& request) const {
  const bool is_vrf = !HasResult(request.operation);
  if (server_ == Server::kNone && !is_vrf) return kHalNoServer;
  if (request.payload.size() > MaxPayload()) return kHalTooLarge;
  if (sure_room_.load(std::memory_order_relaxed) != 0) return std::nullopt;
  const bool supersedes = server_ == Server::kNone && kept_vrfs_.Contains(request.id);
  if (!supersedes && !Fits(request.payload.size())) return kHalQueueFull;
  const std::size_t vrf_bytes = outstanding_.payload_bytes() + kept_vrfs_.bytes();
  if (is_vrf && vrf_bytes + request.payload.size() > max_bytes_) return kHalQueueFull;
  return std::nullopt;
}

bool ClientQueue::Fits(std::size_t payload_size) const {
  if (early_.size() + kept_vrfs_.size() >= max_entries_ || outstanding_.full()) return false;
  const std::size_t bytes = early_bytes_ + frames_.size() + writing_bytes_;
  return bytes == 0 || bytes + kFrameHeaderSize + payload_size <= max_bytes_;
}

// Chosen so that a frame fits into an empty queue. Without a server, its limit is unknown.
std::size_t ClientQueue::MaxPayload() const {
  const std::size_t own = max_bytes_ < kFrameHeaderSize ? 0 : max_bytes_ - kFrameHeaderSize;
  return server_ == Server::kFound ? std::min(own, server_max_payload_) : own;
}

// Whether a request of any size would be accepted, or refused for a reason other than a full queue.
bool ClientQueue::RoomNow() const {
  const std::size_t largest = std::min(MaxPayload(), server_max_payload_);
  return ended_.size() < max_entries_ && Fits(largest) &&
         outstanding_.payload_bytes() + kept_vrfs_.bytes() + largest <=
             std::max(max_bytes_, largest);
}

// For how many requests of any size the room lasts that there is now; 0 if unknown.
std::size_t ClientQueue::SureRoom() const {
  if (server_ != Server::kFound) return 0;
  const std::size_t bytes = std::max(frames_.size() + writing_bytes_, outstanding_.payload_bytes());
  return std::min(max_entries_ - outstanding_.places(),
                  (max_bytes_ - bytes) / (kFrameHeaderSize + MaxPayload()));
}

void ClientQueue::Accept(const HalRequest& request) {
  switch (server_) {
    case Server::kUnknown:
      early_bytes_ += kFrameHeaderSize + request.payload.size();
      early_.push_back({request, std::nullopt});
      ++counters_.queued;
      break;
    case Server::kNone:
      kept_vrfs_.Keep(request);
      counters_.queued = kept_vrfs_.size();
      break;
    case Server::kFound:
      Send(request);
      break;
  }
  counters_.queued_peak = std::max(counters_.queued_peak, counters_.queued);
}

void ClientQueue::Send(const HalRequest& request) {
  const std::size_t sure_room = sure_room_.load(std::memory_order_relaxed);
  if (sure_room != 0) sure_room_.store(sure_room - 1, std::memory_order_relaxed);
  const auto [outstanding, sequence] =
      outstanding_.Add(request, !HasResult(request.operation), Clock::now());
  outstanding->reinstall = open_reinstall_.number;
  if (outstanding->reinstall != 0) {
    outstanding->hash = EntryHash(request.id, request.payload, hash_function_);
  }
  deadlines_to_watch_ = !deadlines_watched_;
  Append(static_cast<FrameType>(request.operation), sequence, request.payload);
}

void ClientQueue::Append(FrameType type, std::uint32_t sequence, const std::string& payload) {
  AppendFrame(type, sequence, payload, &frames_);
  ++frames_counted_;
  ++counters_.queued;
  counters_.queued_peak = std::max(counters_.queued_peak, counters_.queued);
}

bool ClientQueue::SubmitMark(FrameType mark) {
  const MutexLock lock(&mutex_);
  if (server_ == Server::kUnknown) {
    early_.push_back({HalRequest(), mark});
    ++counters_.queued;
  } else if (server_ == Server::kFound) {
    SendMark(mark);
  }
  return WakeFor(HasWork());
}

bool ClientQueue::AskForDigests() {
  const MutexLock lock(&mutex_);
  if (server_ != Server::kFound || open_reinstall_.number != 0 || ended_reinstall_) return false;
  SendMark(FrameType::kEndReinstall);
  return WakeFor(HasWork());
}

void ClientQueue::SendMark(FrameType mark) {
  sure_room_ = 0;
  ++mark_sequence_;
  mark_sequence_ &= kSequenceMask;
  if (mark == FrameType::kBeginReinstall) {
    open_reinstall_ = {0, ++reinstalls_, Clock::now(), {}};
  } else {
    ended_reinstall_ = std::exchange(open_reinstall_, {});
    ended_reinstall_->sequence = mark_sequence_;
    ended_reinstall_->end = Clock::now();
  }
  Append(mark, mark_sequence_, {});
}

bool ClientQueue::HasRoom() {
  if (sure_room_.load(std::memory_order_relaxed) != 0) return true;
  const MutexLock lock(&mutex_);
  if (!RoomNow()) {
    room_wanted_ = true;
    return false;
  }
  sure_room_ = SureRoom();
  return true;
}

bool ClientQueue::TakeRoomReport() {
  const MutexLock lock(&mutex_);
  const std::size_t entries = early_.size() + kept_vrfs_.size() + outstanding_.places();
  const bool half_free = entries <= max_entries_ / 2 && ended_.size() <= max_entries_ / 2 &&
                         early_bytes_ + frames_.size() + writing_bytes_ <= max_bytes_ / 2;
  if (!room_wanted_ || !half_free || !RoomNow()) return false;
  room_wanted_ = false;
  return true;
}

void ClientQueue::End(const HalRequest& request, HalReturnCode code) {
  sure_room_ = 0;
  ended_.push_back({WithoutPayload(request), code});
}

// During a write there is nothing to do: its completion handles whatever arrives meanwhile.
bool ClientQueue::HasWork() const {
  return !ended_.empty() || (!frames_.empty() && !writing_) || deadlines_to_watch_;
}

bool ClientQueue::WakeFor(bool work) {
  if (!work || awake_ || wake_posted_) return false;
  wake_posted_ = true;
  ++wake_ups_;
  return true;
}

// The host thread's write may have made the room that the host waits for.
bool ClientQueue::RequestWake() {
  const MutexLock lock(&mutex_);
  return WakeFor(HasWork() || room_wanted_);
}

void ClientQueue::SuppressWakeUps() {
  const MutexLock lock(&mutex_);
  awake_ = true;
}

bool ClientQueue::AllowWakeUps() {
  const MutexLock lock(&mutex_);
  awake_ = false;
  return deadlines_to_watch_;
}

bool ClientQueue::TakeWakeUp() {
  const MutexLock lock(&mutex_);
  wake_posted_ = false;
  return deadlines_to_watch_;
}

void ClientQueue::ServerFound(std::size_t max_payload, EntryHashFunction hash_function) {
  const MutexLock lock(&mutex_);
  server_ = Server::kFound;
  server_max_payload_ = max_payload;
  hash_function_ = hash_function;
  counters_.queued = 0;
  const auto send = [this](const HalRequest& request) ZUSKUX_REQUIRES(mutex_) {
    if (request.payload.size() <= MaxPayload()) {
      Send(request);
    } else {
      End(request, kHalTooLarge);
    }
  };
  kept_vrfs_.Release(send);
  for (const Early& early : std::exchange(early_, {})) {
    if (early.mark) {
      SendMark(*early.mark);
    } else {
      send(early.request);
    }
  }
  early_bytes_ = 0;
}

void ClientQueue::ServerLost() {
  const MutexLock lock(&mutex_);
  const auto end = [this](HalRequest* request, HalReturnCode code) ZUSKUX_REQUIRES(mutex_) {
    if (HasResult(request->operation)) {
      End(*request, code);
    } else {
      kept_vrfs_.Keep(std::move(*request));
    }
  };
  for (HalRequest& request : outstanding_.TakeAll()) end(&request, kHalServerLost);
  for (Early& early : std::exchange(early_, {})) {
    if (!early.mark) end(&early.request, kHalNoServer);
  }
  server_ = Server::kNone;
  sure_room_ = 0;
  early_bytes_ = 0;
  frames_.clear();
  frames_counted_ = writing_counted_ = writing_bytes_ = 0;
  writing_ = false;
  open_reinstall_ = {};
  ended_reinstall_.reset();
  counters_.queued = kept_vrfs_.size();
}

void ClientQueue::TakeEnded(std::vector<Ended>* ended) {
  ended->clear();
  const MutexLock lock(&mutex_);
  ended->swap(ended_);
}

bool ClientQueue::TakeFrames(std::string* frames) {
  const MutexLock lock(&mutex_);
  if (writing_ || frames_.empty()) return false;
  frames->clear();
  frames->swap(frames_);
  writing_ = true;
  writing_bytes_ = frames->size();
  writing_counted_ = std::exchange(frames_counted_, 0);
  writing_up_to_ = outstanding_.added();
  // A write that carries only a heartbeat does not count.
  if (writing_counted_ != 0) ++writes_;
  return true;
}

void ClientQueue::ConfirmWritten() {
  const MutexLock lock(&mutex_);
  if (!std::exchange(writing_, false)) return;
  outstanding_.MarkWritten(writing_up_to_, Clock::now());
  counters_.queued -= writing_counted_;
  writing_bytes_ = writing_counted_ = 0;
}

void ClientQueue::AddHeartbeat() {
  const MutexLock lock(&mutex_);
  sure_room_ = 0;
  AppendFrame(FrameType::kHeartbeat, 0, {}, &frames_);
}

void ClientQueue::TakeAnswered(const std::vector<Answer>& answers, Clock::time_point now,
                               std::vector<Answered>* answered) {
  answered->clear();
  const MutexLock lock(&mutex_);
  for (const auto& [sequence, result] : answers) {
    const OutstandingRequest* const request = outstanding_.Take(sequence);
    if (request == nullptr) {
      ++counters_.late_results;
      continue;
    }
    CountAnswer(*request, now, result.hal_time);
    answered->emplace_back(*request, &result);
    if (!answered->back().valid()) break;
  }
  undelivered_ = answered->size();
}

void ClientQueue::CountAnswer(const OutstandingRequest& answered, Clock::time_point now,
                              std::chrono::nanoseconds hal_time) {
  // The answer may arrive before the write that carried the request completes. The request has left
  // the queue all the same.
  if (!answered.written && writing_counted_ > 0) {
    --writing_counted_;
    --counters_.queued;
  }
  const auto written = answered.written.value_or(now);
  queue_latency_.Add(written - answered.submitted);
  wire_latency_.Add(now - written - hal_time);
  hal_latency_.Add(hal_time);
  if (answered.expired) ++counters_.late_results;
}

std::optional<ConnectionQueue::Clock::time_point> ClientQueue::EndOverdue(Clock::time_point now) {
  const MutexLock lock(&mutex_);
  deadlines_to_watch_ = false;
  while (const OutstandingRequest* const oldest = outstanding_.OldestUnexpired()) {
    const Clock::time_point due = oldest->submitted + deadline_;
    deadlines_watched_ = due > now;
    if (deadlines_watched_) return due;
    End(outstanding_.ExpireOldest(), kHalDeadline);
  }
  deadlines_watched_ = false;
  return std::nullopt;
}

std::optional<ConnectionQueue::EndedReinstall> ClientQueue::TakeEndedReinstall(
    std::uint32_t sequence) {
  const MutexLock lock(&mutex_);
  if (ended_reinstall_ && ended_reinstall_->sequence == sequence) {
    return std::exchange(ended_reinstall_, std::nullopt);
  }
  ++counters_.late_results;
  return std::nullopt;
}

std::optional<ConnectionQueue::EndedReinstall> ClientQueue::TakeOverdueReinstall(
    Clock::time_point now) {
  const MutexLock lock(&mutex_);
  if (!ended_reinstall_ || ended_reinstall_->end + deadline_ > now) return std::nullopt;
  return std::exchange(ended_reinstall_, std::nullopt);
}

void ClientQueue::CountServerFound() {
  const MutexLock lock(&mutex_);
  ++counters_.servers_found;
}

HalConnectionCounters ClientQueue::counters() const {
  const MutexLock lock(&mutex_);
  HalConnectionCounters counters = counters_;
  counters.results = results_.load(std::memory_order_relaxed);
  counters.connected = server_ == Server::kFound;
  counters.unfinished = early_.size() + kept_vrfs_.size() + outstanding_.size() + undelivered_ +
                        ended_.size() + (ended_reinstall_ ? 1 : 0);
  return counters;
}

HalLatencies ClientQueue::latencies() const {
  // Summaries take much longer than copies, and requests and results would wait for the lock.
  const auto [queue, wire, hal] = [this] {
    const MutexLock lock(&mutex_);
    return std::tuple(queue_latency_, wire_latency_, hal_latency_);
  }();
  return {queue.Summary(), wire.Summary(), hal.Summary()};
}

SocketHalStatistics ClientQueue::statistics() const {
  const MutexLock lock(&mutex_);
  return {wake_ups_, writes_};
}

}  // namespace reference
