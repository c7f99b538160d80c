#include "reference/manager/program/control_server.h"

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <cstddef>
#include <set>
#include <utility>

#include "reference/wire/send.h"

namespace reference {
namespace {

namespace asio = boost::asio;
using boost::system::error_code;

constexpr std::chrono::milliseconds kLater{100};

constexpr char kBusy[] =
    "{\"exit_status\":1,\"error\":\"the manager has too many clients; try again\"}\n";

}  // namespace

struct ControlServer::Sessions {
  Handler handler;
  std::chrono::milliseconds patience;
  std::set<std::shared_ptr<Session>> open;
};

/// A client's connection. Shared with its operations in flight.
class ControlServer::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(ClientAcceptor::Socket socket, std::shared_ptr<Sessions> sessions)
      : socket_(std::move(socket)),
        timer_(socket_.get_executor()),
        sessions_(std::move(sessions)) {}

  void Start() {
    LimitTime();
    asio::async_read_until(socket_, asio::dynamic_buffer(received_, kMaxRequest), '\n',
                           [self = shared_from_this()](const error_code& error, std::size_t size) {
                             if (self->closed_) return;
                             if (error) return self->Close();
                             self->received_.resize(size - 1);
                             self->answer_ = self->sessions_->handler(self->received_);
                             self->WatchForEnd();
                             self->MakePiece();
                           });
  }

  void Close() {
    closed_ = true;
    answer_ = nullptr;
    error_code ignored;
    socket_.close(ignored);
    timer_.cancel(ignored);
    sessions_->open.erase(shared_from_this());
  }

 private:
  void LimitTime() {
    timer_.expires_after(sessions_->patience);
    timer_.async_wait([self = shared_from_this()](const error_code& error) {
      if (!error && !self->closed_) self->Close();
    });
  }

  // A client must not send anything more, so any event on its socket ends the conversation.
  void WatchForEnd() {
    socket_.async_read_some(asio::buffer(more_),
                            [self = shared_from_this()](const error_code&, std::size_t) {
                              if (!self->closed_) self->Close();
                            });
  }

  void MakePiece() {
    AnswerPiece piece = answer_();
    next_ = piece.next;
    if (piece.text.empty()) return Continue();
    outgoing_ = std::move(piece.text);
    LimitTime();
    asio::async_write(socket_, asio::buffer(outgoing_),
                      [self = shared_from_this()](const error_code& error, std::size_t) {
                        if (self->closed_) return;
                        if (error) return self->Close();
                        self->Continue();
                      });
  }

  void Continue() {
    if (next_ == AnswerPiece::Next::kEnd) return Close();
    const auto resume = [self = shared_from_this()] {
      if (!self->closed_) self->MakePiece();
    };
    if (next_ == AnswerPiece::Next::kMore) return asio::post(socket_.get_executor(), resume);
    timer_.expires_after(kLater);
    timer_.async_wait([resume](const error_code& error) {
      if (!error) resume();
    });
  }

  ClientAcceptor::Socket socket_;
  // The client's patience or the pause before the next piece.
  asio::steady_timer timer_;
  const std::shared_ptr<Sessions> sessions_;
  std::string received_;
  std::array<char, 1> more_{};
  Answer answer_;
  AnswerPiece::Next next_ = AnswerPiece::Next::kEnd;
  std::string outgoing_;
  bool closed_ = false;
};

ControlServer::ControlServer(asio::io_context* io, const std::string& path, Handler handler,
                             std::chrono::milliseconds patience)
    : sessions_(std::make_shared<Sessions>(Sessions{std::move(handler), patience, {}})),
      acceptor_(
          io, path,
          [sessions = sessions_](ClientAcceptor::Socket socket) {
            if (sessions->open.size() == kMaxClients) {
              SendAtOnce(socket.native_handle(), kBusy);
              return;
            }
            auto session = std::make_shared<Session>(std::move(socket), sessions);
            sessions->open.insert(session);
            session->Start();
          },
          [](const error_code& /*error*/) {}) {}

ControlServer::~ControlServer() {
  while (!sessions_->open.empty()) (*sessions_->open.begin())->Close();
}

}  // namespace reference
