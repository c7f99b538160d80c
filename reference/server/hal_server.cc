#include "reference/server/hal_server.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/steady_timer.hpp>
#include <utility>

#include "reference/server/server_faults.h"
#include "reference/server/session.h"
#include "reference/wire/unix_listener.h"

namespace reference {

/// Accepts clients and makes their sessions.
class HalServer::Impl : public std::enable_shared_from_this<Impl> {
 public:
  Impl(boost::asio::io_context* io, HalServerOptions options)
      : listener_(std::make_unique<UnixListener>(io, options.path)),
        state_(std::make_shared<ServerState>(std::move(options))),
        retry_(*io) {}

  void Accept();
  void Stop();

  const ServerState& state() const { return *state_; }

 private:
  using ErrorCode = boost::system::error_code;

  void OnAccepted(const ErrorCode& error, Session::Socket socket);
  void AcceptLater();
  void Admit(Session::Socket socket);
  void TurnAway(Session::Socket socket, const std::string& reason);

  // Null once the server has stopped.
  std::unique_ptr<UnixListener> listener_;
  const std::shared_ptr<ServerState> state_;
  boost::asio::steady_timer retry_;
  std::uint64_t last_number_ = 0;
};

namespace {

// After a client could not be accepted, for want of file descriptors for example.
constexpr std::chrono::milliseconds kAcceptPause{100};

}  // namespace

void HalServer::Impl::Accept() {
  listener_->acceptor().async_accept(
      [self = shared_from_this()](const ErrorCode& error, Session::Socket socket) {
        self->OnAccepted(error, std::move(socket));
      });
}

void HalServer::Impl::Stop() {
  listener_.reset();
  ErrorCode ignored;
  retry_.cancel(ignored);
  state_->CloseSessions();
}

void HalServer::Impl::OnAccepted(const ErrorCode& error, Session::Socket socket) {
  if (listener_ == nullptr) return;
  if (error) {
    state_->Log("cannot accept a client: " + error.message());
    return AcceptLater();
  }
  Admit(std::move(socket));
  Accept();
}

void HalServer::Impl::AcceptLater() {
  retry_.expires_after(kAcceptPause);
  retry_.async_wait([self = shared_from_this()](const ErrorCode& error) {
    if (!error && self->listener_ != nullptr) self->Accept();
  });
}

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
  state_->Log("client " + std::to_string(last_number_) + ": refused, " + reason);
  std::string goodbye;
  AppendFrame(FrameType::kGoodbye, 0, reason, &goodbye);
  // A new socket has room for it; if not, the client sees the end only.
  ErrorCode ignored;
  socket.non_blocking(true, ignored);
  socket.write_some(boost::asio::buffer(goodbye), ignored);
}

HalServer::HalServer(boost::asio::io_context* io, HalServerOptions options)
    : impl_(std::make_shared<Impl>(io, std::move(options))) {
  impl_->Accept();
}

HalServer::~HalServer() { impl_->Stop(); }

const HalTables& HalServer::tables() const { return impl_->state().tables; }

std::uint64_t HalServer::generation() const { return impl_->state().generation; }

}  // namespace reference
