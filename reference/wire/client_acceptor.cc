#include "reference/wire/client_acceptor.h"

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <utility>

#include "reference/wire/unix_listener.h"

namespace reference {
namespace {

using boost::system::error_code;

constexpr std::chrono::milliseconds kPause{100};

}  // namespace

class ClientAcceptor::Impl : public std::enable_shared_from_this<Impl> {
 public:
  Impl(boost::asio::io_context* io, const std::string& path, Accepted accepted, Failed failed)
      : listener_(std::make_unique<UnixListener>(io, path)),
        retry_(*io),
        accepted_(std::move(accepted)),
        failed_(std::move(failed)) {}

  void Accept() {
    listener_->acceptor().async_accept(
        [self = shared_from_this()](const error_code& error, Socket socket) {
          if (self->listener_ == nullptr) return;
          if (error) {
            self->failed_(error);
            return self->AcceptLater();
          }
          self->accepted_(std::move(socket));
          self->Accept();
        });
  }

  void Stop() {
    listener_.reset();
    error_code ignored;
    retry_.cancel(ignored);
  }

 private:
  void AcceptLater() {
    retry_.expires_after(kPause);
    retry_.async_wait([self = shared_from_this()](const error_code& error) {
      if (!error && self->listener_ != nullptr) self->Accept();
    });
  }

  // Null once stopped.
  std::unique_ptr<UnixListener> listener_;
  boost::asio::steady_timer retry_;
  const Accepted accepted_;
  const Failed failed_;
};

ClientAcceptor::ClientAcceptor(boost::asio::io_context* io, const std::string& path,
                               Accepted accepted, Failed failed)
    : impl_(std::make_shared<Impl>(io, path, std::move(accepted), std::move(failed))) {
  impl_->Accept();
}

ClientAcceptor::~ClientAcceptor() { impl_->Stop(); }

}  // namespace reference
