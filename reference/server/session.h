#ifndef ZUSKUX_REFERENCE_SERVER_SESSION_H_
#define ZUSKUX_REFERENCE_SERVER_SESSION_H_

#include <sys/types.h>

#include <array>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "reference/hal/hal_tables.h"
#include "reference/server/digest_walk.h"
#include "reference/server/hal_server.h"
#include "reference/server/late_answers.h"
#include "reference/server/object_states.h"
#include "reference/server/request_decoder.h"
#include "reference/server/server_faults.h"
#include "reference/wire/frame.h"
#include "wire.pb.h"

namespace reference {

class AbandonedTables;
class DataPlaneWatch;
class Session;

/// The state that a server's sessions share. Used on the server's thread.
struct ServerState {
  explicit ServerState(HalServerOptions server_options);
  ServerState(const ServerState&) = delete;
  ServerState& operator=(const ServerState&) = delete;
  ~ServerState();

  wire::ServerStatus Status() const;
  void Log(LogLevel level, const std::string& line) const;
  /// Number of entries in all tables.
  std::size_t EntryCount() const;
  /// Removes some of what the reinstall has not named, from the tables and the data plane. Returns
  /// whether nothing is left.
  bool EndReinstallInPart();
  /// Makes the data plane's changes that cannot be undone.
  void CommitOrLeave() const;
  /// Changes the writer; 0 for none.
  void SetWriter(std::uint64_t session);
  /// Tells the writer, if there is one, what it does not know of `object_states` yet.
  void TellObjectStates() const;
  /// Closes every session.
  void CloseSessions() const;
  /// Does what a restart of the process would do, or really ends the process.
  void Crash();

  const HalServerOptions options;
  HalTables tables;
  RequestDecoder decoder;
  std::uint64_t generation;
  std::chrono::steady_clock::time_point started;
  std::uint64_t requests = 0;
  /// The results so far, by code.
  std::map<HalReturnCode, std::uint64_t> results;
  std::uint64_t connections = 0;
  std::uint64_t refused_connections = 0;
  /// Null without a data plane.
  std::unique_ptr<DataPlaneWatch> watch;
  ObjectStates object_states;
  /// When the objects recover that a fault has broken.
  std::map<std::uint64_t, boost::asio::steady_timer> recoveries;
  std::uint64_t last_recovery = 0;
  /// Null if the tables stay forever.
  std::unique_ptr<AbandonedTables> abandoned_tables;
  /// Number of table readings in progress.
  std::size_t table_readings = 0;
  /// The sessions whose reading, or end of a reinstall, can continue, in turn; the first one's turn
  /// is posted.
  std::deque<std::weak_ptr<Session>> turns;
  /// The number of the session that may change the tables; 0 if none may.
  std::uint64_t writer = 0;
  /// The last log line about a client refused because of the writer. Kept because refused clients
  /// ask again.
  std::string last_writer_refusal;
  /// By session number, counted from 1.
  std::unordered_map<std::uint64_t, std::shared_ptr<Session>> sessions;
};

/// The conversation with one client: hello, then requests in order of arrival. Handles all frames
/// of a read, then writes their answers in one go. Applies back-pressure: while too many answer
/// bytes wait, it does not read from the client. Table readings and the ends of reinstalls proceed
/// in turns, a step at a time, interleaved with other clients' requests; a reading no faster than
/// its client reads. Owned by `ServerState` and by its handlers in flight.
class Session : public std::enable_shared_from_this<Session> {
 public:
  using Socket = boost::asio::local::stream_protocol::socket;
  using ErrorCode = boost::system::error_code;

  /// The session keeps `state` alive, so `state` outlives the session's last handler.
  Session(Socket socket, std::shared_ptr<ServerState> state, std::uint64_t number,
          const ServerFaults::ConnectionFate& fate);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  void Start();
  /// Closes the connection immediately. Nothing is handled or logged afterwards.
  void Close();
  /// Tells the client about objects whose state has changed, as far as it can be told now.
  void TellObjectStates();

 private:
  // A table reading in progress.
  struct TableReading {
    std::uint32_t sequence = 0;
    TableCursor cursor{};
  };
  // The end of a reinstall in progress.
  struct ReinstallEnd {
    std::uint32_t sequence = 0;
    // Whether there may be more to remove.
    bool removes = false;
    std::size_t entries_before = 0;
    // The digests for a client that does not know the tables' own hash function.
    DigestWalk older_digests{EntryHashFunction::kFnv1a};
  };
  // A request that the data plane has not committed yet.
  struct Staged {
    std::uint32_t sequence = 0;
    HalRequest request;
    // The code from the tables; the data plane may still refuse the request.
    HalReturnCode code = kHalSuccess;
    SavedEntry before;
    // Why the data plane refused it; empty otherwise.
    std::string reason;
  };

  void Read();
  void ReadSome();
  void OnRead(const ErrorCode& error, std::size_t size);
  void OnReadEnd(const ErrorCode& error);
  // Handles what has been read, writes the answers and continues reading, each as far as possible.
  void Proceed();
  void Write();
  void OnWritten(const ErrorCode& error);
  // Number of answer bytes waiting for the client.
  std::size_t Unsent() const;

  void HandleFrames();
  void Handle(const FrameSplitter::Frame& frame);
  void OnHello(const FrameSplitter::Frame& frame);
  // Tries to become the writer, which it is not yet. Returns whether it is now; if not, it has been
  // refused.
  bool BecomeWriter(bool take_over);
  void RefuseBeside(const Session& writer);
  // The client's name for itself, and its process.
  std::string Name() const;
  bool PeerIsGone();
  void OnRequest(const FrameSplitter::Frame& frame);
  // Carries out `request_`, which the frame carries, as far as a fault lets it; `message` is null
  // if it did not decode.
  void CarryOut(const FrameSplitter::Frame& frame, const google::protobuf::Message* message);
  // With a data plane: carries out `request_`, whose answer waits for the commit.
  void Stage(std::uint32_t sequence, const google::protobuf::Message* message);
  // Why the data plane refused the request that was just applied; empty if it did not.
  std::string ReasonFor(HalReturnCode code) const;
  void CommitStaged();
  // After a refusal: finds the refused requests.
  void CommitOneByOne();
  // Makes the object states follow the result of `request_`.
  void NoteOutcome(HalReturnCode code);
  // Appends what the client does not know of the object states, unless the results before it are
  // late, or too much waits for the client.
  void AppendObjectStates();
  void Answer(const ServerFaults::RequestFate& fate, std::uint32_t sequence, HalReturnCode code,
              std::string_view reason = {});
  void OnBeginReinstall();
  void OnEndReinstall(std::uint32_t sequence);
  void ContinueReinstallEnd();
  void AnswerEnd(const ReinstallEnd& end, const HalDigests& digests);
  void StartTableReading(std::uint32_t sequence);
  // Queues for the next turn, which continues a reading or the end of a reinstall by a step.
  void AwaitTurn();
  static void PostTurn(const Socket::executor_type& executor,
                       const std::shared_ptr<ServerState>& state);
  void TakeTurn();
  void AppendEntries();
  void EndTableReading();
  void AppendMessage(FrameType type, std::uint32_t sequence,
                     const google::protobuf::MessageLite& message);
  void TellRequest();
  void TellResult(HalReturnCode code, std::string_view reason) const;
  // The result of `request_`, sent at `due`, or now if that is past.
  ResultPayload ResultOf(HalReturnCode code, std::string_view reason, ServerFaults::Time due) const;

  // Rejects an invalid conversation: logs the reason, sends it to the client, and closes.
  void Refuse(const std::string& reason);
  void SayGoodbye(GoodbyeReason reason, const std::string& text);
  // Closes once the waiting answers have been written, or after a short timeout.
  void CloseAfterWriting();
  void LogAndClose(LogLevel level, const std::string& event);
  void StartDeadline(std::chrono::steady_clock::duration time);
  void OnDeadline();

  // Only used with faults.
  void BreakObject(HalReturnCode code, std::chrono::milliseconds time);
  void SendLate(ServerFaults::Time due, std::uint32_t rank, std::string answer);
  void WaitForLate();

  Socket socket_;
  const std::shared_ptr<ServerState> state_;
  const std::uint64_t number_;
  const pid_t pid_;
  const ServerFaults::ConnectionFate fate_;

  bool greeted_ = false;
  // Whether the client understands reasons in results.
  bool takes_reasons_ = false;
  // Whether it understands object states.
  bool takes_object_states_ = false;
  // The function for the digests that it compares with its own.
  EntryHashFunction hash_function_ = EntryHashFunction::kFnv1a;
  // In quotes and safe to print.
  std::string program_;
  // Whether a reinstall that this session began is open.
  bool reinstalling_ = false;
  bool closing_ = false;
  bool reading_ = false;
  bool writing_ = false;
  boost::asio::steady_timer deadline_;
  boost::asio::steady_timer read_timer_;

  std::array<char, std::size_t{64} * 1024> input_;
  FrameSplitter splitter_;
  ServerFaults::Time read_at_{};
  // When a byte was last sent or received.
  ServerFaults::Time active_at_{};
  // Bytes read that do not belong to a handled frame yet.
  std::size_t unhandled_ = 0;
  // A member so that its memory is reused. Has a copy of the payload if anyone reads that after the
  // tables.
  HalRequest request_;
  std::string scratch_;
  // Empty between reads, and without a data plane.
  std::vector<Staged> staged_;
  // The frames that follow wait for these.
  std::optional<TableReading> table_reading_;
  std::optional<ReinstallEnd> reinstall_end_;
  bool turn_awaited_ = false;

  // Answers being written, and those that follow.
  std::string output_;
  std::string next_output_;
  LateAnswers late_;
  boost::asio::steady_timer late_timer_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_SERVER_SESSION_H_
