#include "reference/server/session.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/endian/conversion.hpp>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "reference/hal/data_plane.h"
#include "reference/hal/request_observer.h"
#include "reference/server/abandoned_tables.h"
#include "reference/server/data_plane_watch.h"
#include "reference/text/printable.h"
#include "reference/wire/object_states.h"
#include "reference/wire/send.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// How long a client has for reading the last of its answers.
constexpr milliseconds kCloseTimeout{5'000};
// The maximum length of a client's name in the log.
constexpr std::size_t kMaxName = 64;
// How many bytes of table entries a turn of a reading appends; the last entry may exceed it.
constexpr std::size_t kReadingStep = std::size_t{32} * 1024;
// How many entries a turn of the end of a reinstall examines.
constexpr std::size_t kReinstallEndStep = std::size_t{16} * 1024;
constexpr std::size_t kMaxWrite = std::size_t{64} * 1024;
// Far enough from the client's sequence numbers to match none of them.
constexpr std::uint32_t kStrayDistance = (kSequenceMask + 1) / 2;

std::uint64_t NewGeneration() {
  std::random_device random;
  std::uniform_int_distribution<std::uint64_t> any(1);
  return any(random);
}

// The id of the connected process; 0 for one that this process cannot see.
pid_t PeerOf(Session::Socket* socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  getsockopt(socket->native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
  return peer.pid;
}

void AddKinds(const HalDigests& digests,
              google::protobuf::RepeatedPtrField<wire::KindSummary>* out) {
  for (const HalKind kind : kAllHalKinds) {
    const HalDigest& digest = digests.of(kind);
    wire::KindSummary* const summary = out->Add();
    summary->set_kind(std::string(HalKindName(kind)));
    summary->set_count(digest.count);
    summary->set_digest(digest.sum);
  }
}

// Throws `ProtocolError` for a frame other than a request that is invalid after the hello.
void CheckFrame(const FrameSplitter::Frame& frame) {
  const FrameType type = frame.header.type;
  if (type != FrameType::kBeginReinstall && type != FrameType::kEndReinstall &&
      type != FrameType::kHeartbeat && type != FrameType::kReadTables) {
    throw ProtocolError("unexpected frame of type " + std::to_string(static_cast<int>(type)));
  }
  if (frame.payload.empty()) return;
  throw ProtocolError("frame of type " + std::to_string(static_cast<int>(type)) +
                      " has a payload of " + std::to_string(frame.payload.size()) +
                      " bytes, but must have none");
}

}  // namespace

ServerState::ServerState(HalServerOptions server_options)
    : options(std::move(server_options)),
      tables(options.table_capacity, options.data_plane),
      generation(NewGeneration()),
      started(steady_clock::now()) {
  if (options.observer != nullptr) options.observer->ServerFound();
}

ServerState::~ServerState() = default;

wire::ServerStatus ServerState::Status() const {
  wire::ServerStatus status;
  status.set_generation(generation);
  const auto uptime = std::chrono::duration_cast<milliseconds>(steady_clock::now() - started);
  status.set_uptime_ms(static_cast<std::uint64_t>(uptime.count()));
  AddKinds(tables.digests(), status.mutable_kinds());
  status.set_requests(requests);
  status.set_connections(connections);
  status.set_refused_connections(refused_connections);
  const auto writes = options.data_plane != nullptr ? options.data_plane->writes() : std::nullopt;
  if (!writes) return status;
  status.set_data_plane_writes(*writes);
  if (watch != nullptr) status.set_data_plane_differences(watch->differences());
  return status;
}

void ServerState::Log(LogLevel level, const std::string& line) const {
  if (options.observer != nullptr) options.observer->Event(line);
  if (options.log) options.log(level, line);
}

std::size_t ServerState::EntryCount() const {
  std::size_t count = 0;
  for (const HalKind kind : kAllHalKinds) count += tables.size(kind);
  return count;
}

bool ServerState::EndReinstallInPart() {
  const bool ended = tables.EndReinstallInPart(kReinstallEndStep);
  if (ended) {
    object_states.RemoveUnless(
        [this](HalKind kind, std::uint32_t id) { return tables.Contains(kind, id); });
  }
  if (options.data_plane == nullptr) return ended;
  CommitOrLeave();
  return ended && options.data_plane->RemoveLeftovers(kReinstallEndStep);
}

void ServerState::CommitOrLeave() const {
  if (!options.data_plane->CommitOrLeave() && watch != nullptr) watch->CheckSoon();
}

void ServerState::SetWriter(std::uint64_t session) {
  writer = session;
  object_states.TellAll();
  if (abandoned_tables == nullptr) return;
  if (session == 0) {
    abandoned_tables->WriterLeft();
  } else {
    abandoned_tables->WriterCame();
  }
}

void ServerState::TellObjectStates() const {
  const auto session = sessions.find(writer);
  if (session != sessions.end()) session->second->TellObjectStates();
}

void ServerState::CloseSessions() const {
  // Closing a session removes it.
  while (!sessions.empty()) {
    const std::shared_ptr<Session> session = sessions.begin()->second;
    session->Close();
  }
}

void ServerState::Crash() {
  options.faults->Crash();
  CloseSessions();
  tables.Clear();
  object_states.Clear();
  recoveries.clear();
  generation = NewGeneration();
  started = steady_clock::now();
  requests = 0;
  connections = 0;
  refused_connections = 0;
  if (options.observer != nullptr) options.observer->ServerFound();
}

Session::Session(Socket socket, std::shared_ptr<ServerState> state, std::uint64_t number,
                 const ServerFaults::ConnectionFate& fate)
    : socket_(std::move(socket)),
      state_(std::move(state)),
      number_(number),
      pid_(PeerOf(&socket_)),
      fate_(fate),
      deadline_(socket_.get_executor()),
      read_timer_(socket_.get_executor()),
      splitter_(state_->options.max_payload),
      late_timer_(socket_.get_executor()) {}

Session::~Session() = default;

void Session::Start() {
  StartDeadline(state_->options.hello_timeout);
  Read();
}

void Session::Close() {
  ErrorCode ignored;
  socket_.close(ignored);
  deadline_.cancel(ignored);
  read_timer_.cancel(ignored);
  late_timer_.cancel(ignored);
  if (state_->writer == number_) state_->SetWriter(0);
  EndTableReading();
  reinstall_end_.reset();
  state_->sessions.erase(number_);
}

void Session::Read() {
  reading_ = true;
  if (fate_.read_bytes_per_second == 0) return ReadSome();
  read_timer_.expires_after(milliseconds(1000) / fate_.read_bytes_per_second);
  read_timer_.async_wait([self = shared_from_this()](const ErrorCode& error) {
    if (!error && self->socket_.is_open()) self->ReadSome();
  });
}

void Session::ReadSome() {
  const std::size_t size = fate_.read_bytes_per_second == 0 ? input_.size() : 1;
  socket_.async_read_some(boost::asio::buffer(input_.data(), size),
                          [self = shared_from_this()](const ErrorCode& error, std::size_t read) {
                            self->OnRead(error, read);
                          });
}

void Session::OnRead(const ErrorCode& error, std::size_t size) {
  reading_ = false;
  if (!socket_.is_open() || closing_) return;
  if (error) return OnReadEnd(error);
  read_at_ = active_at_ = steady_clock::now();
  splitter_.Feed({input_.data(), size});
  unhandled_ += size;
  Proceed();
}

void Session::OnReadEnd(const ErrorCode& error) {
  if (error != boost::asio::error::eof) {
    return LogAndClose(LogLevel::kWarning, "lost, " + error.message());
  }
  std::string event = "left";
  if (unhandled_ != 0) {
    event += " in the middle of a frame";
  } else if (!greeted_) {
    event += " without a hello";
  }
  state_->Log(event == "left" ? LogLevel::kInfo : LogLevel::kWarning,
              "client " + std::to_string(number_) + ": " + event);
  CloseAfterWriting();
}

void Session::Proceed() {
  HandleFrames();
  if (!socket_.is_open()) return;
  AppendObjectStates();
  Write();
  if (!socket_.is_open() || closing_) return;
  if (table_reading_) {
    if (output_.empty() && next_output_.empty()) AwaitTurn();
  } else if (reinstall_end_) {
    AwaitTurn();
  } else if (!reading_ && Unsent() <= state_->options.max_unsent) {
    Read();
  }
}

void Session::TellObjectStates() {
  AppendObjectStates();
  Write();
}

void Session::AppendObjectStates() {
  if (state_->writer != number_ || !takes_object_states_ || !late_.empty()) return;
  ObjectStates& states = state_->object_states;
  while (states.has_news() && Unsent() <= state_->options.max_unsent) {
    const std::vector<HalObjectState> news = states.TakeNews(kMaxObjectStates);
    if (news.empty()) return;
    reference::AppendObjectStates(news, &next_output_);
    if (state_->options.observer == nullptr) continue;
    for (const HalObjectState& state : news) state_->options.observer->ObjectStateChanged(state);
  }
}

void Session::Write() {
  if (writing_) return;
  if (next_output_.empty()) {
    if (closing_) Close();
    return;
  }
  output_.swap(next_output_);
  // Larger output takes turns with the answers to other clients.
  const bool at_once = !fate_.one_byte_writes && output_.size() <= state_->options.max_unsent;
  const std::size_t sent = at_once ? SendAtOnce(socket_.native_handle(), output_) : 0;
  if (sent != 0) active_at_ = steady_clock::now();
  if (sent == output_.size()) {
    output_.clear();
    if (closing_) Close();
    return;
  }
  writing_ = true;
  const std::size_t step = fate_.one_byte_writes ? 1 : kMaxWrite;
  boost::asio::async_write(
      socket_, boost::asio::buffer(output_) + sent,
      [this, step](const ErrorCode& error, std::size_t written) {
        if (written != 0) active_at_ = steady_clock::now();
        return error ? 0 : step;
      },
      [self = shared_from_this()](const ErrorCode& error, std::size_t) { self->OnWritten(error); });
}

void Session::OnWritten(const ErrorCode& error) {
  writing_ = false;
  output_.clear();
  if (!socket_.is_open()) return;
  if (error && closing_) return Close();
  if (error) return LogAndClose(LogLevel::kWarning, "lost, " + error.message());
  Proceed();
}

std::size_t Session::Unsent() const { return output_.size() + next_output_.size() + late_.bytes(); }

void Session::HandleFrames() {
  try {
    while (socket_.is_open() && !closing_ && !table_reading_ && !reinstall_end_) {
      const auto frame = splitter_.Next();
      if (!frame) break;
      unhandled_ -= frame->whole.size();
      Handle(*frame);
    }
  } catch (const ProtocolError& error) {
    CommitStaged();
    return Refuse(error.what());
  }
  CommitStaged();
}

void Session::Handle(const FrameSplitter::Frame& frame) {
  const FrameType type = frame.header.type;
  if (!greeted_) return OnHello(frame);
  const bool request = IsRequest(type);
  if (!request) {
    CheckFrame(frame);
    // It must see the effect of the requests before it.
    CommitStaged();
  }
  const bool writes =
      request || type == FrameType::kBeginReinstall || type == FrameType::kEndReinstall;
  // A client of minor version 0 does not announce in its hello that it writes.
  if (writes && state_->writer != number_ && !BecomeWriter(false)) return;
  if (request) {
    OnRequest(frame);
  } else if (type == FrameType::kBeginReinstall) {
    OnBeginReinstall();
  } else if (type == FrameType::kEndReinstall) {
    OnEndReinstall(frame.header.sequence);
  } else if (type == FrameType::kHeartbeat) {
    AppendFrame(type, frame.header.sequence, {}, &next_output_);
  } else {
    StartTableReading(frame.header.sequence);
  }
}

void Session::OnHello(const FrameSplitter::Frame& frame) {
  if (frame.header.type != FrameType::kHello) {
    throw ProtocolError("the first frame is of type " +
                        std::to_string(static_cast<int>(frame.header.type)) + ", not a hello");
  }
  wire::Hello theirs;
  if (!theirs.ParseFromArray(frame.payload.data(), static_cast<int>(frame.payload.size()))) {
    throw ProtocolError("its hello does not decode");
  }
  if (theirs.protocol_version() != kProtocolVersion) {
    throw ProtocolError("the client speaks protocol version " +
                        std::to_string(theirs.protocol_version()) + ", the server version " +
                        std::to_string(kProtocolVersion));
  }
  program_ = Quote(theirs.program(), kMaxName);
  if (theirs.writes() && !BecomeWriter(theirs.take_over())) return;
  greeted_ = true;
  takes_reasons_ = theirs.protocol_minor_version() >= kMinorVersionWithReasons;
  takes_object_states_ = theirs.protocol_minor_version() >= kMinorVersionWithObjectStates;
  hash_function_ = EntryHashFunctionWith(theirs.protocol_minor_version());
  StartDeadline(state_->options.idle_timeout);
  state_->Log(LogLevel::kInfo,
              "client " + std::to_string(number_) + ": " + program_ + " connected");

  wire::Hello ours;
  ours.set_protocol_version(kProtocolVersion);
  ours.set_protocol_minor_version(kProtocolMinorVersion);
  ours.set_program("zuskux-hal " ZUSKUX_VERSION);
  ours.set_generation(state_->generation);
  ours.set_table_capacity(state_->options.table_capacity);
  ours.set_max_payload(static_cast<std::uint32_t>(state_->options.max_payload));
  AppendMessage(FrameType::kHello, frame.header.sequence, ours);
}

bool Session::BecomeWriter(bool take_over) {
  if (state_->writer != 0) {
    const std::shared_ptr<Session> writer = state_->sessions.at(state_->writer);
    if (writer->PeerIsGone()) {
      writer->LogAndClose(LogLevel::kInfo, "left");
    } else if (take_over) {
      const std::string reason = Name() + " has taken over";
      state_->Log(LogLevel::kWarning, "client " + std::to_string(writer->number_) + ": " + reason +
                                          "; connection closed");
      writer->SayGoodbye(GoodbyeReason::kTakenOver, reason);
    } else {
      RefuseBeside(*writer);
      return false;
    }
  }
  state_->SetWriter(number_);
  return true;
}

void Session::RefuseBeside(const Session& writer) {
  ++state_->refused_connections;
  const std::string reason =
      writer.Name() + " programs this server, which has one writer at a time";
  const std::string refusal = Name() + " refused: " + reason;
  if (std::exchange(state_->last_writer_refusal, refusal) != refusal) {
    state_->Log(LogLevel::kWarning, "client " + std::to_string(number_) + ": " + refusal);
  }
  SayGoodbye(GoodbyeReason::kOtherWriter, reason);
}

std::string Session::Name() const {
  return program_ + " (pid " + (pid_ == 0 ? "unknown" : std::to_string(pid_)) + ')';
}

// A killed client goes away before the server has read everything that it sent.
bool Session::PeerIsGone() {
  pollfd peer{socket_.native_handle(), 0, 0};
  return poll(&peer, 1, 0) == 1 && (peer.revents & POLLHUP) != 0;
}

void Session::OnRequest(const FrameSplitter::Frame& frame) {
  ++state_->requests;
  const google::protobuf::Message* const message = state_->decoder.Decode(frame, &request_);
  if (state_->options.observer != nullptr || state_->options.data_plane != nullptr) {
    request_.payload = frame.payload;
  }
  CarryOut(frame, message);
}

void Session::CarryOut(const FrameSplitter::Frame& frame,
                       const google::protobuf::Message* message) {
  using End = ServerFaults::RequestFate::End;
  const std::uint32_t sequence = frame.header.sequence;
  TellRequest();
  if (state_->options.data_plane != nullptr) return Stage(sequence, message);
  ServerFaults* const faults = state_->options.faults;
  const auto fate =
      faults == nullptr ? ServerFaults::RequestFate() : faults->OnRequest(request_, state_->tables);
  if (fate.end == End::kCrashBefore) return state_->Crash();
  if (fate.end == End::kCloseBefore) return CloseAfterWriting();

  HalReturnCode code = kHalBadRequest;
  if (fate.code) {
    code = *fate.code;
  } else if (message != nullptr) {
    code = state_->tables.Apply(request_.operation, frame.payload, *message);
  }

  if (fate.end == End::kCrashAfter) return state_->Crash();
  if (fate.end == End::kCloseAfter) return CloseAfterWriting();
  Answer(fate, sequence, code);
  if (!fate.broken || code != kHalSuccess) return;
  if (ActionOf(request_.operation) == HalAction::kDestroy) return;
  BreakObject(*fate.broken, fate.broken_for);
}

void Session::BreakObject(HalReturnCode code, milliseconds time) {
  const HalKind kind = KindOf(request_.operation);
  const std::uint32_t id = request_.id;
  state_->object_states.Set({kind, id, code, "a fault"});
  const std::uint64_t number = ++state_->last_recovery;
  const auto [recovery, added] =
      state_->recoveries.try_emplace(number, socket_.get_executor(), time);
  recovery->second.async_wait(
      [server = std::weak_ptr<ServerState>(state_), number, kind, id](const ErrorCode& error) {
        const auto state = server.lock();
        // The timer may have expired just before the server's end.
        if (error || state == nullptr || state->recoveries.erase(number) == 0) return;
        state->object_states.Set({kind, id, kHalSuccess, {}});
        state->TellObjectStates();
      });
}

void Session::Stage(std::uint32_t sequence, const google::protobuf::Message* message) {
  const SavedEntry before = state_->tables.Save(KindOf(request_.operation), request_.id);
  const HalReturnCode code =
      message == nullptr ? kHalBadRequest
                         : state_->tables.Apply(request_.operation, request_.payload, *message);
  staged_.push_back({sequence, request_, code, before, ReasonFor(code)});
}

std::string Session::ReasonFor(HalReturnCode code) const {
  const bool has_reason = code == kHalNoInterface || code == kHalNotSupported;
  return has_reason ? state_->options.data_plane->reason() : std::string();
}

void Session::CommitStaged() {
  if (staged_.empty()) return;
  if (state_->options.data_plane->Commit()) CommitOneByOne();
  for (Staged& staged : staged_) {
    request_ = std::move(staged.request);
    Answer({}, staged.sequence, staged.code, staged.reason);
  }
  staged_.clear();
}

// Undoing everything first keeps the codes exact: a request that refers to a refused one finds that
// missing.
void Session::CommitOneByOne() {
  HalTables& tables = state_->tables;
  DataPlane& data_plane = *state_->options.data_plane;
  for (auto staged = staged_.rbegin(); staged != staged_.rend(); ++staged) {
    if (staged->code == kHalSuccess) tables.Restore(staged->before);
  }
  state_->CommitOrLeave();
  for (Staged& staged : staged_) {
    if (staged.code == kHalBadRequest) continue;
    staged.before = tables.Save(staged.before.kind, staged.before.id);
    staged.code = tables.Apply(staged.request);
    staged.reason = ReasonFor(staged.code);
    if (staged.code != kHalSuccess) continue;
    const auto refusal = data_plane.Commit();
    if (!refusal) continue;
    state_->Log(LogLevel::kWarning, std::string(OperationName(staged.request.operation)) + ' ' +
                                        std::to_string(staged.request.id) + ": " + *refusal);
    tables.Restore(staged.before);
    state_->CommitOrLeave();
    staged.code = kHalKernelRefused;
    staged.reason = *refusal;
  }
}

void Session::TellRequest() {
  RequestObserver* const observer = state_->options.observer;
  if (observer != nullptr) request_.number = observer->Request(request_, nullptr);
}

void Session::TellResult(HalReturnCode code, std::string_view reason) const {
  RequestObserver* const observer = state_->options.observer;
  if (observer == nullptr || !HasResult(request_.operation)) return;
  observer->Result(request_.number, request_, code, reason);
}

ResultPayload Session::ResultOf(HalReturnCode code, std::string_view reason,
                                ServerFaults::Time due) const {
  return {code, request_.id, request_.secondary_id, std::max(steady_clock::now(), due) - read_at_,
          takes_reasons_ ? reason : std::string_view()};
}

void Session::OnBeginReinstall() {
  if (state_->options.faults != nullptr) state_->options.faults->OnBeginReinstall();
  if (state_->options.observer != nullptr) state_->options.observer->BeginReinstall();
  state_->tables.BeginReinstall();
  reinstalling_ = true;
}

void Session::OnEndReinstall(std::uint32_t sequence) {
  // Without a begin, the client only asks for the digests.
  const bool removes = std::exchange(reinstalling_, false);
  if (removes && state_->options.observer != nullptr) state_->options.observer->EndReinstall();
  reinstall_end_ = ReinstallEnd{sequence, removes, state_->EntryCount()};
  ContinueReinstallEnd();
}

void Session::ContinueReinstallEnd() {
  if (reinstall_end_->removes && !state_->EndReinstallInPart()) return;
  reinstall_end_->removes = false;
  const bool older = hash_function_ != EntryHashFunction::kXxh3;
  if (older && !reinstall_end_->older_digests.Continue(state_->tables, kReinstallEndStep)) return;
  const ReinstallEnd end = *std::exchange(reinstall_end_, std::nullopt);
  AnswerEnd(end, older ? end.older_digests.digests() : state_->tables.digests());
}

void Session::AnswerEnd(const ReinstallEnd& end, const HalDigests& digests) {
  wire::TableSummary summary;
  summary.set_removed(end.entries_before - state_->EntryCount());
  AddKinds(digests, summary.mutable_kinds());
  if (state_->options.faults == nullptr) {
    return AppendMessage(FrameType::kInSync, end.sequence, summary);
  }
  std::string answer;
  AppendFrame(FrameType::kInSync, end.sequence, summary.SerializeAsString(), &answer);
  SendLate(state_->options.faults->OnEndReinstall(), 0, std::move(answer));
}

void Session::StartTableReading(std::uint32_t sequence) {
  const std::size_t limit = state_->options.max_table_readings;
  if (state_->table_readings >= limit) {
    return Refuse(std::to_string(limit) + " clients already read the tables, which is the limit");
  }
  ++state_->table_readings;
  table_reading_ = TableReading{sequence};
}

void Session::AwaitTurn() {
  if (std::exchange(turn_awaited_, true)) return;
  state_->turns.push_back(weak_from_this());
  if (state_->turns.size() == 1) PostTurn(socket_.get_executor(), state_);
}

// Only one turn is posted at a time, so that all other pending events run between two turns.
void Session::PostTurn(const Socket::executor_type& executor,
                       const std::shared_ptr<ServerState>& state) {
  boost::asio::post(executor, [executor, state] {
    if (const auto session = state->turns.front().lock()) session->TakeTurn();
    state->turns.pop_front();
    if (!state->turns.empty()) PostTurn(executor, state);
  });
}

void Session::TakeTurn() {
  turn_awaited_ = false;
  // The connection may have ended since.
  if (!table_reading_ && !reinstall_end_) return;
  if (table_reading_) {
    AppendEntries();
  } else {
    ContinueReinstallEnd();
  }
  Proceed();
}

void Session::AppendEntries() {
  const std::size_t end = next_output_.size() + kReadingStep;
  while (next_output_.size() < end) {
    const auto entry = state_->tables.Next(&table_reading_->cursor);
    if (!entry) {
      AppendMessage(FrameType::kTableEnd, table_reading_->sequence, state_->Status());
      return EndTableReading();
    }
    const std::uint32_t id = boost::endian::native_to_big(entry->id);
    scratch_.assign(1, static_cast<char>(entry->kind));
    scratch_.append(reinterpret_cast<const char*>(&id), sizeof id);
    scratch_.append(entry->payload);
    AppendFrame(FrameType::kTableEntry, table_reading_->sequence, scratch_, &next_output_);
  }
}

void Session::EndTableReading() {
  if (!table_reading_) return;
  table_reading_.reset();
  --state_->table_readings;
}

void Session::AppendMessage(FrameType type, std::uint32_t sequence,
                            const google::protobuf::MessageLite& message) {
  message.SerializeToString(&scratch_);
  AppendFrame(type, sequence, scratch_, &next_output_);
}

void Session::Refuse(const std::string& reason) {
  state_->Log(LogLevel::kWarning,
              "client " + std::to_string(number_) + ": " + reason + "; connection closed");
  SayGoodbye(GoodbyeReason::kOther, reason);
}

void Session::SayGoodbye(GoodbyeReason reason, const std::string& text) {
  AppendFrame(FrameType::kGoodbye, static_cast<std::uint32_t>(reason), text, &next_output_);
  CloseAfterWriting();
}

void Session::CloseAfterWriting() {
  closing_ = true;
  if (state_->writer == number_) state_->SetWriter(0);
  EndTableReading();
  reinstall_end_.reset();
  StartDeadline(kCloseTimeout);
  Write();
}

void Session::LogAndClose(LogLevel level, const std::string& event) {
  state_->Log(level, "client " + std::to_string(number_) + ": " + event);
  Close();
}

void Session::StartDeadline(steady_clock::duration time) {
  deadline_.expires_after(time);
  deadline_.async_wait([self = shared_from_this()](const ErrorCode& error) {
    if (!error) self->OnDeadline();
  });
}

void Session::OnDeadline() {
  // The deadline may have been met or moved since this handler was queued.
  if (!socket_.is_open() || deadline_.expiry() > steady_clock::now()) return;
  if (closing_) return Close();
  if (!greeted_) return Refuse("no hello in time");
  const milliseconds limit = state_->options.idle_timeout;
  const auto silence = steady_clock::now() - active_at_;
  if (silence < limit) return StartDeadline(limit - silence);
  Refuse("no byte sent or received for " + std::to_string(limit.count()) + " ms");
}

// A state that is not in order may be out of date: the request may have mended it.
void Session::NoteOutcome(HalReturnCode code) {
  if (code == kHalSuccess && state_->object_states.empty()) return;
  const HalKind kind = KindOf(request_.operation);
  const bool destroys = ActionOf(request_.operation) == HalAction::kDestroy;
  if (!destroys && (code == kHalNoInterface || code == kHalKernelRefused)) {
    state_->object_states.NoteRefusal(kind, request_.id, code, state_->options.table_capacity);
  }
  if (code != kHalSuccess) return;
  if (destroys) {
    state_->object_states.Remove(kind, request_.id);
  } else if (state_->object_states.TellAgain(kind, request_.id) && state_->watch != nullptr) {
    state_->watch->CheckSoon();
  }
}

void Session::Answer(const ServerFaults::RequestFate& fate, std::uint32_t sequence,
                     HalReturnCode code, std::string_view reason) {
  NoteOutcome(code);
  TellResult(code, reason);
  ++state_->results[code];
  const ResultPayload result = ResultOf(code, reason, fate.due);
  const auto append = [&](std::string* out) {
    for (int copy = 0; copy < fate.copies; ++copy) AppendResult(sequence, result, out);
    if (fate.stray) AppendResult(sequence + kStrayDistance, result, out);
  };
  // Always the case without faults.
  if (fate.cut == 0 && fate.due <= read_at_ && late_.empty()) return append(&next_output_);

  std::string answer;
  append(&answer);
  if (fate.cut != 0) {
    next_output_.append(answer, 0, fate.cut);
    return CloseAfterWriting();
  }
  SendLate(fate.due, fate.rank, std::move(answer));
}

void Session::SendLate(ServerFaults::Time due, std::uint32_t rank, std::string answer) {
  late_.Add(due, rank, std::move(answer));
  // Due answers also go through the queue, because they must not overtake those that have been due
  // for longer.
  late_.TakeDue(steady_clock::now(), &next_output_);
  WaitForLate();
}

void Session::WaitForLate() {
  if (late_.empty()) return;
  late_timer_.expires_at(late_.next());
  late_timer_.async_wait([self = shared_from_this()](const ErrorCode& error) {
    if (error || !self->socket_.is_open()) return;
    self->late_.TakeDue(steady_clock::now(), &self->next_output_);
    self->WaitForLate();
    self->Proceed();
  });
}

}  // namespace reference
