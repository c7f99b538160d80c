#include "reference/server/hal_server.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <utility>

#include "reference/server/abandoned_tables.h"
#include "reference/server/data_plane_watch.h"
#include "reference/server/server_faults.h"
#include "reference/server/session.h"
#include "reference/wire/client_acceptor.h"

namespace reference {

/// Accepts clients and creates their sessions.
class HalServer::Impl {
 public:
  Impl(boost::asio::io_context* io, HalServerOptions options)
      : state_(std::make_shared<ServerState>(std::move(options))),
        acceptor_(
            io, state_->options.path, [this](Session::Socket socket) { Admit(std::move(socket)); },
            [this](const ErrorCode& error) {
              state_->Log(LogLevel::kError, "cannot accept a client: " + error.message());
            }) {
    if (const auto keep = state_->options.keep) {
      state_->abandoned_tables = std::make_unique<AbandonedTables>(io, state_.get(), *keep);
    }
    if (state_->options.data_plane == nullptr) return;
    state_->watch = std::make_unique<DataPlaneWatch>(
        io, state_->options.data_plane, state_->options.audit,
        [this](LogLevel level, const std::string& line) { state_->Log(level, line); },
        [this](const Repair& repair) {
          state_->object_states.SetAll(repair.broken);
          if (repair.interfaces_came) state_->object_states.TellOfRefusals();
          state_->TellObjectStates();
        });
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    state_->watch.reset();
    state_->recoveries.clear();
    state_->abandoned_tables.reset();
    state_->CloseSessions();
  }

  const ServerState& state() const { return *state_; }

 private:
  using ErrorCode = boost::system::error_code;

  void Admit(Session::Socket socket);
  void TurnAway(Session::Socket socket, const std::string& reason);

  // Shared with the sessions.
  const std::shared_ptr<ServerState> state_;
  std::uint64_t last_number_ = 0;
  ClientAcceptor acceptor_;
};

void HalServer::Impl::Admit(Session::Socket socket) {
  using Entry = ServerFaults::ConnectionFate::Entry;
  ServerFaults* const faults = state_->options.faults;
  const auto fate = faults == nullptr ? ServerFaults::ConnectionFate() : faults->OnAccept();
  ++last_number_;
  if (fate.entry == Entry::kClose) return;
  if (fate.entry == Entry::kRefuse) return TurnAway(std::move(socket), "refused by a fault");
  if (state_->sessions.size() >= state_->options.max_clients) {
    return TurnAway(std::move(socket), "the server has " +
                                           std::to_string(state_->options.max_clients) +
                                           " clients, which is its limit");
  }
  ++state_->connections;
  const auto session = std::make_shared<Session>(std::move(socket), state_, last_number_, fate);
  state_->sessions.emplace(last_number_, session);
  session->Start();
}

void HalServer::Impl::TurnAway(Session::Socket socket, const std::string& reason) {
  ++state_->refused_connections;
  state_->Log(LogLevel::kWarning,
              "client " + std::to_string(last_number_) + ": refused, " + reason);
  std::string goodbye;
  AppendFrame(FrameType::kGoodbye, 0, reason, &goodbye);
  // A new socket has room for this. If not, the client sees only the end of the connection.
  ErrorCode ignored;
  socket.non_blocking(true, ignored);
  socket.write_some(boost::asio::buffer(goodbye), ignored);
}

HalServer::HalServer(boost::asio::io_context* io, HalServerOptions options)
    : impl_(std::make_unique<Impl>(io, std::move(options))) {}

HalServer::~HalServer() = default;

const HalTables& HalServer::tables() const { return impl_->state().tables; }

std::uint64_t HalServer::generation() const { return impl_->state().generation; }

wire::ServerStatus HalServer::Status() const { return impl_->state().Status(); }

bool HalServer::HasWriter() const { return impl_->state().writer != 0; }

const std::map<HalReturnCode, std::uint64_t>& HalServer::results() const {
  return impl_->state().results;
}

}  // namespace reference
