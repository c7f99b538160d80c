#include "reference/socket_client/socket_hal.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "reference/socket_client/client_queue.h"
#include "reference/socket_client/handler_memory.h"
#include "reference/socket_client/reinstall_check.h"
#include "reference/socket_client/socket_watch.h"
#include "reference/support/mutex.h"
#include "reference/text/hex.h"
#include "reference/text/printable.h"
#include "reference/wire/frame.h"
#include "reference/wire/object_states.h"
#include "reference/wire/send.h"
#include "wire.pb.h"

namespace reference {
namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using Protocol = asio::local::stream_protocol;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadSize = std::size_t{64} * 1024;
// How many results are delivered at once: enough to share a lock among, and so few that they are
// still in the processor's first-level cache.
constexpr std::size_t kMaxAnswers = 128;
constexpr int kMaxRepeatedReinstalls = 3;
// Limits the rate of attempts if the socket is recreated again and again.
constexpr std::chrono::milliseconds kMinAttemptInterval{10};

std::string Text(std::chrono::milliseconds time) { return std::to_string(time.count()) + " ms"; }

std::string HelloFrame(const std::string& program, bool take_over) {
  wire::Hello hello;
  hello.set_protocol_version(kProtocolVersion);
  hello.set_protocol_minor_version(kProtocolMinorVersion);
  hello.set_program(program);
  hello.set_writes(true);
  hello.set_take_over(take_over);
  std::string frame;
  AppendFrame(FrameType::kHello, 0, hello.SerializeAsString(), &frame);
  return frame;
}

/// The connection cannot go on; the text is for the log.
class ConnectionEnd : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One connection, or an attempt at one. Shared with its operations in flight, so that their
/// buffers outlive a dropped connection.
struct Connection {
  explicit Connection(asio::io_context* io) : socket(*io), splitter(kDefaultMaxPayload) {}

  HandlerMemory read_memory;
  HandlerMemory write_memory;
  Protocol::socket socket;
  std::array<char, kReadSize> incoming{};
  FrameSplitter splitter;
  std::string outgoing;
  bool writing = false;
  bool greeted = false;
  /// The function for digests that the server also knows.
  EntryHashFunction hash_function = EntryHashFunction::kFnv1a;
  /// The server has sent more than its hello.
  bool useful = false;
  /// The server said goodbye because another client programs it.
  bool other_writer = false;
  /// Since the last heartbeat check.
  bool heard = false;
  bool heartbeat_unanswered = false;
  int heartbeats_missed = 0;
};
using ConnectionPtr = std::shared_ptr<Connection>;

}  // namespace

/// The thread and what runs on it. Called on that thread, except for the first two groups.
class SocketHal::Client {
 public:
  explicit Client(SocketHalOptions options);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client();

  // On the host's thread:
  void Start(HalReporter reporter);
  HalReturnCode Submit(const HalRequest& request);
  void SubmitMark(FrameType mark);
  void AskForDigests();
  HostQueue* queue() { return host_queue_; }
  // On any thread:
  FoundServer server() const;

 private:
  // On the host's thread:
  void WriteAtOnce();
  void Wake();

  void OnWake(bool deadlines_to_watch);

  void Connect();
  void OnConnected(const ConnectionPtr& connection, const error_code& error);
  void Reconnect(const std::string& reason, std::chrono::milliseconds longest_pause);
  void Reconnect(const std::string& reason) { Reconnect(reason, options_.reconnect_last); }
  void ConnectAt(Clock::time_point time);
  void OnSocketAppeared();

  void Read(const ConnectionPtr& connection);
  void OnRead(const ConnectionPtr& connection, const error_code& error, std::size_t size);
  void HandleBytes(const ConnectionPtr& connection, std::size_t size);
  void HandleFrames(FrameSplitter* splitter);
  void WriteQueued(const ConnectionPtr& connection);
  void WriteRest(const ConnectionPtr& connection, std::string rest);
  void WriteOutgoing(const ConnectionPtr& connection, std::size_t begin);
  void OnWritten(const ConnectionPtr& connection);
  void AllowHostWrites(const ConnectionPtr& connection);
  void ForbidHostWrites();
  void EndOverdue();
  void ScheduleHeartbeat(const ConnectionPtr& connection);
  void CheckHeartbeat(const ConnectionPtr& connection);

  // Each throws `ConnectionEnd` if the connection cannot go on after the frame.
  void OnFrame(const FrameSplitter::Frame& frame);
  void OnHello(std::string_view payload);
  void DeliverAnswers();
  void OnAnswered(const ConnectionQueue::Answered& answered);
  void OnInSync(const FrameSplitter::Frame& frame);
  void OnObjectStates(const FrameSplitter::Frame& frame);
  void OnNotInSync(const std::string& reason);

  void ReportServerFound();
  void ReportReinstallEnded(bool in_sync);
  void ReportEnded();
  void ReportRoom();
  void Report(const HalRequest& request, HalReturnCode code, std::string_view reason = {});

  void Log(LogLevel level, const std::string& line) const;
  void LogFailure(const std::string& line);

  const SocketHalOptions options_;
  const Protocol::endpoint endpoint_;
  ClientQueue client_queue_;
  HostQueue* const host_queue_ = client_queue_.host();
  ConnectionQueue* const queue_ = client_queue_.connection();
  HalReporter reporter_;
  std::atomic<bool> stopping_ = false;

  // Of the wake-up; the context may still hold it at its end.
  HandlerMemory wake_memory_;
  asio::io_context io_;
  asio::steady_timer reconnect_timer_{io_};
  asio::steady_timer heart_timer_{io_};
  asio::steady_timer deadline_timer_{io_};
  SocketWatch socket_watch_{&io_, options_.path, [this] { OnSocketAppeared(); }};
  // Null during the pause before the next attempt.
  ConnectionPtr connection_;
  // When the last attempt to connect began.
  Clock::time_point attempted_;
  // When the last read returned.
  Clock::time_point read_at_;
  std::chrono::milliseconds pause_;
  std::string last_failure_;
  // Whether the next hello requests a takeover.
  bool take_over_;
  std::vector<ConnectionQueue::Ended> ended_;
  // Results that have arrived one after the other, and the requests to which they belong.
  std::vector<ConnectionQueue::Answer> answers_;
  std::vector<ConnectionQueue::Answered> answered_;
  ReinstallCheck reinstall_check_;
  int repeated_reinstalls_ = 0;

  mutable Mutex server_mutex_;
  FoundServer server_ ZUSKUX_GUARDED_BY(server_mutex_);

  Mutex host_mutex_;
  // The connection that the host's thread may write to, null for none, and what it writes.
  ConnectionPtr host_connection_ ZUSKUX_GUARDED_BY(host_mutex_);
  std::string host_outgoing_ ZUSKUX_GUARDED_BY(host_mutex_);

  std::thread thread_;
};

SocketHal::Client::Client(SocketHalOptions options)
    : options_(std::move(options)),
      endpoint_(options_.path),
      client_queue_(options_),
      io_(1),
      pause_(options_.reconnect_first),
      take_over_(options_.take_over) {}

SocketHal::Client::~Client() {
  stopping_ = true;
  io_.stop();
  if (thread_.joinable()) thread_.join();
}

void SocketHal::Client::Start(HalReporter reporter) {
  reporter_ = std::move(reporter);
  thread_ = std::thread([this] {
    Connect();
    io_.run();
  });
}

HalReturnCode SocketHal::Client::Submit(const HalRequest& request) {
  const auto [code, next] = host_queue_->Submit(request);
  const bool write_now = next == HostQueue::Next::kWriteNow;
  if (write_now) WriteAtOnce();
  if (next == HostQueue::Next::kWakeConnection || (write_now && host_queue_->RequestWake())) Wake();
  return code;
}

// Waking the client's thread for a single request would take longer than writing it.
void SocketHal::Client::WriteAtOnce() {
  const MutexLock lock(&host_mutex_);
  if (host_connection_ == nullptr || !host_queue_->TakeFrames(&host_outgoing_)) return;
  const std::size_t sent = SendAtOnce(host_connection_->socket.native_handle(), host_outgoing_);
  if (sent == host_outgoing_.size()) return host_queue_->ConfirmWritten();
  asio::post(io_,
             [this, connection = host_connection_, rest = host_outgoing_.substr(sent)]() mutable {
               WriteRest(connection, std::move(rest));
             });
}

FoundServer SocketHal::Client::server() const {
  const MutexLock lock(&server_mutex_);
  return server_;
}

void SocketHal::Client::SubmitMark(FrameType mark) {
  if (host_queue_->SubmitMark(mark)) Wake();
}

void SocketHal::Client::AskForDigests() {
  if (host_queue_->AskForDigests()) Wake();
}

// The queue asks for one wake-up at a time.
void SocketHal::Client::Wake() {
  asio::post(io_, HandlerIn(&wake_memory_, [this] { OnWake(queue_->TakeWakeUp()); }));
}

void SocketHal::Client::OnWake(bool deadlines_to_watch) {
  if (deadlines_to_watch) EndOverdue();
  ReportEnded();
  if (connection_ != nullptr) WriteQueued(connection_);
  ReportRoom();
}

void SocketHal::Client::Connect() {
  // Watch before connecting, so that a socket created after the attempt is noticed.
  socket_watch_.Watch();
  attempted_ = Clock::now();
  connection_ = std::make_shared<Connection>(&io_);
  connection_->socket.async_connect(endpoint_,
                                    [this, connection = connection_](const error_code& error) {
                                      OnConnected(connection, error);
                                    });
}

void SocketHal::Client::OnConnected(const ConnectionPtr& connection, const error_code& error) {
  if (error) {
    Reconnect("no HAL server at " + options_.path + ": " + error.message(),
              std::min(options_.reconnect_absent, options_.reconnect_last));
    return;
  }
  connection->outgoing = HelloFrame(options_.program, take_over_);
  WriteOutgoing(connection, 0);
  Read(connection);
  ScheduleHeartbeat(connection);
}

// Ends the connection, or the attempt at one, and everything that depends on it. The next attempt
// follows after a pause.
void SocketHal::Client::Reconnect(const std::string& reason,
                                  std::chrono::milliseconds longest_pause) {
  socket_watch_.Watch();
  if (connection_->useful) pause_ = options_.reconnect_first;
  ForbidHostWrites();
  const bool found = connection_->greeted;
  const bool other_writer = connection_->other_writer;
  error_code ignored;
  connection_->socket.close(ignored);
  connection_.reset();
  heart_timer_.cancel();
  reinstall_check_.Clear();
  queue_->ServerLost();
  LogFailure(reason);
  ReportEnded();
  if (found && !stopping_) reporter_.ServerLost();
  if (other_writer && !stopping_ && options_.other_writer) options_.other_writer();
  ReportRoom();

  pause_ = std::min(pause_, longest_pause);
  ConnectAt(Clock::now() + pause_);
  pause_ = std::min(pause_ * 2, longest_pause);
}

void SocketHal::Client::ConnectAt(Clock::time_point time) {
  reconnect_timer_.expires_at(time);
  reconnect_timer_.async_wait([this](const error_code& error) {
    // A timer that has already expired can no longer be cancelled.
    if (!error && connection_ == nullptr) Connect();
  });
}

void SocketHal::Client::OnSocketAppeared() {
  // The server may not listen yet.
  pause_ = options_.reconnect_first;
  if (connection_ == nullptr) ConnectAt(std::max(Clock::now(), attempted_ + kMinAttemptInterval));
}

void SocketHal::Client::Read(const ConnectionPtr& connection) {
  connection->socket.async_read_some(
      asio::buffer(connection->incoming),
      HandlerIn(&connection->read_memory,
                [this, connection](const error_code& error, std::size_t size) {
                  OnRead(connection, error, size);
                }));
}

void SocketHal::Client::OnRead(const ConnectionPtr& connection, const error_code& error,
                               std::size_t size) {
  if (connection != connection_) return;
  if (error) {
    Reconnect("HAL server lost: " + error.message());
    return;
  }
  queue_->SuppressWakeUps();
  HandleBytes(connection, size);
  if (stopping_) return;
  OnWake(queue_->AllowWakeUps());
  if (connection == connection_) Read(connection);
}

// Handles the bytes that were read and what follows from them.
void SocketHal::Client::HandleBytes(const ConnectionPtr& connection, std::size_t size) {
  read_at_ = Clock::now();
  connection->heard = true;
  connection->splitter.Feed({connection->incoming.data(), size});
  try {
    HandleFrames(&connection->splitter);
    ReportRoom();
  } catch (const ConnectionEnd& end) {
    if (!stopping_) Reconnect(end.what());
  } catch (const ProtocolError& error) {
    if (!stopping_) {
      Reconnect(std::string("HAL server closed, it sent no valid frame: ") + error.what());
    }
  }
}

void SocketHal::Client::HandleFrames(FrameSplitter* splitter) {
  answers_.clear();
  try {
    while (const auto frame = splitter->Next()) {
      OnFrame(*frame);
      if (stopping_) return;
    }
  } catch (const ProtocolError&) {
    DeliverAnswers();
    throw;
  }
  DeliverAnswers();
}

void SocketHal::Client::WriteQueued(const ConnectionPtr& connection) {
  if (!connection->greeted || connection->writing) return;
  while (queue_->TakeFrames(&connection->outgoing)) {
    const std::size_t sent = SendAtOnce(connection->socket.native_handle(), connection->outgoing);
    if (sent < connection->outgoing.size()) return WriteOutgoing(connection, sent);
    queue_->ConfirmWritten();
  }
}

// Completes a write that the host's thread began.
void SocketHal::Client::WriteRest(const ConnectionPtr& connection, std::string rest) {
  if (connection != connection_) return;
  connection->outgoing = std::move(rest);
  WriteOutgoing(connection, 0);
}

void SocketHal::Client::WriteOutgoing(const ConnectionPtr& connection, std::size_t begin) {
  connection->writing = true;
  asio::async_write(connection->socket, asio::buffer(connection->outgoing) + begin,
                    HandlerIn(&connection->write_memory,
                              [this, connection](const error_code& error, std::size_t) {
                                connection->writing = false;
                                // After an error there may still be something to read; the end of
                                // the stream reports the loss.
                                if (connection == connection_ && !error) OnWritten(connection);
                              }));
}

void SocketHal::Client::OnWritten(const ConnectionPtr& connection) {
  queue_->ConfirmWritten();
  if (connection->greeted) AllowHostWrites(connection);
  WriteQueued(connection);
  ReportRoom();
}

void SocketHal::Client::AllowHostWrites(const ConnectionPtr& connection) {
  const MutexLock lock(&host_mutex_);
  host_connection_ = connection;
}

void SocketHal::Client::ForbidHostWrites() {
  const MutexLock lock(&host_mutex_);
  host_connection_ = nullptr;
}

void SocketHal::Client::EndOverdue() {
  const auto next = queue_->EndOverdue(Clock::now());
  ReportEnded();
  if (!next) return;
  deadline_timer_.expires_at(*next);
  deadline_timer_.async_wait([this](const error_code& error) {
    if (error) return;
    EndOverdue();
    ReportRoom();
  });
}

void SocketHal::Client::ScheduleHeartbeat(const ConnectionPtr& connection) {
  heart_timer_.expires_after(options_.heartbeat);
  heart_timer_.async_wait([this, connection](const error_code& error) {
    if (!error && connection == connection_) CheckHeartbeat(connection);
  });
}

void SocketHal::Client::CheckHeartbeat(const ConnectionPtr& connection) {
  const bool heard = std::exchange(connection->heard, false);
  if (connection->greeted && heard) {
    connection->heartbeat_unanswered = false;
    connection->heartbeats_missed = 0;
  } else if (!connection->greeted || connection->heartbeat_unanswered) {
    ++connection->heartbeats_missed;
  }
  if (connection->heartbeats_missed >= options_.heartbeats_missed) {
    Reconnect(std::string("HAL server lost: no ") +
              (connection->greeted ? "sign of life" : "hello") + " for " +
              Text(options_.heartbeat * options_.heartbeats_missed));
    return;
  }
  const auto overdue = queue_->TakeOverdueReinstall(Clock::now());
  if (overdue && overdue->number != 0) {
    OnNotInSync("the server has not answered the end of the reinstall for " +
                Text(options_.deadline));
  }
  if (connection->greeted && !heard && !connection->heartbeat_unanswered) {
    connection->heartbeat_unanswered = true;
    queue_->AddHeartbeat();
    WriteQueued(connection);
  }
  ScheduleHeartbeat(connection);
}

void SocketHal::Client::OnFrame(const FrameSplitter::Frame& frame) {
  const FrameType type = frame.header.type;
  if (type == FrameType::kResult && connection_->greeted) {
    if (const auto result = ParseResult(frame.payload)) {
      connection_->useful = true;
      answers_.push_back({frame.header.sequence, *result});
      if (answers_.size() == kMaxAnswers) DeliverAnswers();
      return;
    }
  }
  DeliverAnswers();
  if (stopping_) return;
  if (type == FrameType::kGoodbye) {
    const auto reason = static_cast<GoodbyeReason>(frame.header.sequence);
    connection_->other_writer =
        reason == GoodbyeReason::kOtherWriter || reason == GoodbyeReason::kTakenOver;
    throw ConnectionEnd("HAL server says goodbye: " + Printable(frame.payload, kMaxForeignText));
  }
  if (!connection_->greeted) {
    if (type == FrameType::kHello) return OnHello(frame.payload);
    throw ConnectionEnd("HAL server closed, it sent frame type " +
                        std::to_string(static_cast<int>(type)) + " before its hello");
  }
  connection_->useful = true;
  switch (type) {
    case FrameType::kResult:
      throw ConnectionEnd("HAL server closed, it sent a result of " +
                          std::to_string(frame.payload.size()) + " bytes");
    case FrameType::kInSync:
      return OnInSync(frame);
    case FrameType::kObjectStates:
      return OnObjectStates(frame);
    case FrameType::kHeartbeat:
      if (frame.payload.empty()) return;
      throw ConnectionEnd("HAL server closed, it sent a heartbeat with a payload");
    default:
      connection_->useful = false;
      throw ConnectionEnd(
          "HAL server closed, it sent frame type " + std::to_string(static_cast<int>(type)) +
          (type == FrameType::kHello ? ", a second hello" : ", which no server sends"));
  }
}

void SocketHal::Client::OnHello(std::string_view payload) {
  wire::Hello hello;
  if (!hello.ParseFromArray(payload.data(), static_cast<int>(payload.size()))) {
    throw ConnectionEnd("HAL server closed, its hello does not decode");
  }
  if (hello.protocol_version() != kProtocolVersion) {
    throw ConnectionEnd("HAL server closed, it speaks protocol version " +
                        std::to_string(hello.protocol_version()) + " and this client version " +
                        std::to_string(kProtocolVersion) + ": update the older one");
  }
  connection_->greeted = true;
  // Otherwise, two clients would take over from each other forever.
  take_over_ = false;
  connection_->heartbeats_missed = 0;
  last_failure_.clear();
  socket_watch_.Stop();
  repeated_reinstalls_ = 0;
  {
    const MutexLock lock(&server_mutex_);
    server_ = {hello.program(), hello.generation()};
  }
  Log(LogLevel::kInfo, "connected to HAL server " + Printable(hello.program(), kMaxForeignText) +
                           ", generation " + Hex(hello.generation()));
  connection_->hash_function = EntryHashFunctionWith(hello.protocol_minor_version());
  queue_->ServerFound(hello.max_payload(), connection_->hash_function);
  ReportEnded();
  ReportServerFound();
  if (!connection_->writing) AllowHostWrites(connection_);
  EndOverdue();
}

// Takes all of their requests from the queue at once.
void SocketHal::Client::DeliverAnswers() {
  if (answers_.empty()) return;
  queue_->TakeAnswered(answers_, read_at_, &answered_);
  for (const ConnectionQueue::Answered& answered : answered_) {
    queue_->CountDelivery();
    OnAnswered(answered);
    if (stopping_) return;
  }
  answers_.clear();
}

void SocketHal::Client::OnAnswered(const ConnectionQueue::Answered& answered) {
  const OutstandingRequest& outstanding = answered.request;
  const HalRequest request = outstanding.Request();
  const ResultPayload& result = *answered.result;
  if (!answered.valid()) {
    if (!outstanding.expired) Report(request, kHalServerLost);
    const std::string answer = result.id != request.id
                                   ? " with a result for " + std::to_string(result.id)
                                   : " with code " +
                                         std::to_string(static_cast<std::uint32_t>(result.code)) +
                                         ", a code of the client's own";
    throw ConnectionEnd("HAL server closed, it answered " +
                        std::string(OperationName(request.operation)) + ' ' +
                        std::to_string(request.id) + answer);
  }
  // Few results carry one.
  const std::string reason = result.reason.empty() ? std::string() : Printable(result.reason);
  const bool is_vrf = !HasResult(request.operation);
  if (is_vrf && result.code != kHalSuccess) {
    Log(LogLevel::kError, std::string(OperationName(request.operation)) + ' ' +
                              std::to_string(request.id) +
                              " refused: " + OutcomeText(result.code, reason));
  }
  // A refused VRF is missing from the summary at the end, so the reinstall is repeated for it.
  if (outstanding.reinstall != 0 && (is_vrf || result.code == kHalSuccess)) {
    reinstall_check_.Acknowledge(outstanding.reinstall, request, outstanding.hash);
  }
  if (!outstanding.expired) Report(request, result.code, reason);
}

void SocketHal::Client::OnInSync(const FrameSplitter::Frame& frame) {
  wire::TableSummary summary;
  if (!summary.ParseFromArray(frame.payload.data(), static_cast<int>(frame.payload.size()))) {
    throw ConnectionEnd("HAL server closed, its table summary does not decode");
  }
  const auto reinstall = queue_->TakeEndedReinstall(frame.header.sequence);
  if (!reinstall) return;
  if (reinstall->number == 0) {
    if (!stopping_) reporter_.Digests(DigestsOf(summary, connection_->hash_function));
    return;
  }

  const auto differences = reinstall_check_.End(reinstall->number, summary);
  if (!differences) {
    repeated_reinstalls_ = 0;
    const auto time =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - reinstall->begin);
    Log(LogLevel::kInfo, "in sync after " + Text(time) + ": " + SummaryText(summary));
    ReportReinstallEnded(true);
    return;
  }
  OnNotInSync(*differences);
}

void SocketHal::Client::OnObjectStates(const FrameSplitter::Frame& frame) {
  auto states = ParseObjectStates(frame.payload);
  if (!states) throw ConnectionEnd("HAL server closed, its object states do not decode");
  for (HalObjectState& state : *states) {
    if (stopping_) return;
    state.reason = Printable(state.reason);
    reporter_.ObjectStateChanged(state);
  }
}

void SocketHal::Client::OnNotInSync(const std::string& reason) {
  const bool again = repeated_reinstalls_ < kMaxRepeatedReinstalls;
  Log(LogLevel::kError, "NOT in sync: " + reason + (again ? "; reinstalling" : "; giving up"));
  if (!again) {
    ReportReinstallEnded(false);
    return;
  }
  ++repeated_reinstalls_;
  ReportServerFound();
}

void SocketHal::Client::ReportReinstallEnded(bool in_sync) {
  if (!stopping_) reporter_.ReinstallEnded(in_sync);
}

void SocketHal::Client::ReportServerFound() {
  if (stopping_) return;
  queue_->CountServerFound();
  reporter_.ServerFound();
}

void SocketHal::Client::ReportEnded() {
  queue_->TakeEnded(&ended_);
  for (const auto& [request, code] : ended_) {
    if (!HasResult(request.operation)) {
      Log(LogLevel::kError,
          std::string(OperationName(request.operation)) + ' ' + std::to_string(request.id) +
              (code == kHalDeadline ? " failed: " : " dropped: ") + MakeErrorCode(code).message());
    }
    Report(request, code);
  }
}

void SocketHal::Client::ReportRoom() {
  if (!queue_->TakeRoomReport() || stopping_) return;
  reporter_.Room();
}

void SocketHal::Client::Report(const HalRequest& request, HalReturnCode code,
                               std::string_view reason) {
  if (stopping_) return;
  if (HasResult(request.operation)) queue_->CountResult();
  reporter_.Result(request, code, reason);
}

void SocketHal::Client::Log(LogLevel level, const std::string& line) const {
  reporter_.Event(line);
  if (options_.log) options_.log(level, line);
}

void SocketHal::Client::LogFailure(const std::string& line) {
  if (line == last_failure_) return;
  last_failure_ = line;
  Log(LogLevel::kWarning, line);
}

SocketHal::SocketHal(SocketHalOptions options)
    : client_(std::make_unique<Client>(std::move(options))) {}

SocketHal::~SocketHal() = default;

void SocketHal::Start(HalReports reports) {
  client_->Start(HalReporter(std::move(reports), observer()));
}

void SocketHal::AskForDigests() { client_->AskForDigests(); }

bool SocketHal::HasRoom() { return client_->queue()->HasRoom(); }

void SocketHal::SubmitBeginReinstall() { client_->SubmitMark(FrameType::kBeginReinstall); }

void SocketHal::SubmitEndReinstall() { client_->SubmitMark(FrameType::kEndReinstall); }

HalConnectionCounters SocketHal::counters() const { return client_->queue()->counters(); }

HalLatencies SocketHal::latencies() const { return client_->queue()->latencies(); }

SocketHalStatistics SocketHal::statistics() const { return client_->queue()->statistics(); }

FoundServer SocketHal::server() const { return client_->server(); }

HalReturnCode SocketHal::Submit(HalRequest* request) { return client_->Submit(*request); }

}  // namespace reference
