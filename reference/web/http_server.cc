#include "reference/web/http_server.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/system/system_error.hpp>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include "reference/wire/send.h"
#include "reference/wire/unix_listener.h"

namespace reference {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Local = asio::local::stream_protocol;
using Socket = asio::generic::stream_protocol::socket;
using Parser = http::request_parser<http::empty_body>;

constexpr milliseconds kAcceptPause{100};
// How long a client may take to read the last answer before its connection is closed.
constexpr milliseconds kLinger{1000};
// A query may take this part of the program's thread: one of so many.
constexpr int kQueryShare = 5;
constexpr milliseconds kMaxQueryPause{50};

// Answers a client that is one too many, whatever it asks for.
constexpr char kTooManyClients[] =
    "HTTP/1.1 503 Service Unavailable\r\n"
    "Retry-After: 1\r\n"
    "Connection: close\r\n"
    "Content-Length: 0\r\n\r\n";

// Only the server's own files run in a browser, and nothing is kept.
constexpr std::array<std::pair<const char*, const char*>, 5> kFields = {
    {{"Cache-Control", "no-store"},
     {"Content-Security-Policy",
      "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src "
      "'self'; "
      "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
     {"X-Content-Type-Options", "nosniff"},
     {"Referrer-Policy", "no-referrer"},
     {"Cross-Origin-Resource-Policy", "same-origin"}}};

template <typename Response>
void SetHead(const HttpResponse& content, unsigned version, bool keep_alive, Response* response) {
  response->result(content.status);
  response->version(version);
  for (const auto& [field, value] : kFields) response->set(field, value);
  response->set(http::field::content_type, content.type);
  if (content.status == 405) response->set(http::field::allow, "GET, HEAD");
  if (content.status == 503) response->set(http::field::retry_after, "1");
  response->keep_alive(keep_alive);
}

std::string MachineName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

HttpError ErrorOf(const error_code& error) {
  if (error == http::error::header_limit || error == http::error::buffer_overflow) {
    return {431, "the head of the request is longer than 8192 bytes; shorten it"};
  }
  if (error == http::error::body_limit) return {413, "a request has no body here; leave it out"};
  return {400, "the request is no HTTP: " + error.message()};
}

void Limit(Parser* parser) {
  parser->header_limit(HttpServer::kMaxHeader);
  parser->body_limit(0);
}

// What the head of a request asks for. Throws `HttpError`.
HttpRequest RequestOf(const Parser& parser, const std::string& machine) {
  const auto& head = parser.get();
  if (parser.chunked() || parser.content_length().value_or(0) != 0) {
    throw HttpError(413, "a request has no body here; leave it out");
  }
  if (head.count(http::field::host) != 1) throw HttpError(400, "the request needs one Host header");
  const auto host = head[http::field::host];
  if (!IsOwnHost({host.data(), host.size()}, machine)) {
    throw HttpError(403,
                    "this server is not known as the host that the request names; use its IP "
                    "address, localhost or its own host name");
  }
  if (head.method() != http::verb::get && head.method() != http::verb::head) {
    throw HttpError(405, "everything here is read-only; use GET");
  }
  const auto target = head.target();
  HttpRequest request = ParseTarget({target.data(), target.size()});
  const auto last_event = head["Last-Event-ID"];
  request.last_event_id.assign(last_event.data(), last_event.size());
  return request;
}

}  // namespace

class HttpServer::Impl {
 public:
  using Answered = std::function<void(const HttpResponse&)>;

  Impl(HttpServer* server, HttpServerOptions options, HttpPages* pages)
      : server_(server), options_(std::move(options)), pages_(pages) {
    if (options_.address.unix_path.empty()) {
      ListenOnTcp();
    } else {
      unix_.emplace(&io_, options_.address.unix_path);
    }
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() {
    io_.stop();
    thread_.join();
    slow_.join();
    sessions_.clear();
  }

  void StartThread() {
    asio::post(io_, [this] {
      pages_->Start(server_);
      Accept();
    });
    thread_ = std::thread([this] { io_.run(); });
  }

  void Ask(const std::string& target, std::shared_ptr<Query> query, Answered answered);
  void Broadcast(const EventBatch& batch);

  const HttpServerOptions& options() const { return options_; }
  HttpPages* pages() const { return pages_; }
  const std::string& machine() const { return machine_; }
  asio::io_context* io() { return &io_; }

 private:
  friend class HttpServer;
  class Session;
  // A query, and who waits for its answer.
  struct Job {
    // What was asked for; empty if the pages ask.
    std::string target;
    std::shared_ptr<Query> query;
    std::vector<Answered> waiting;
  };

  void ListenOnTcp() {
    const std::string url = HttpUrl(options_.address);
    try {
      const tcp::endpoint endpoint(asio::ip::make_address(options_.address.ip),
                                   options_.address.port);
      tcp_.emplace(io_, endpoint, true);
      options_.address.port = tcp_->local_endpoint().port();
    } catch (const boost::system::system_error& error) {
      throw boost::system::system_error(
          error.code(), "cannot serve " + url + "; choose another address or port for --http");
    }
  }

  void Accept() {
    const auto accepted = [this](const error_code& error, auto socket) {
      if (error) {
        // For example for lack of file descriptors.
        server_->After(kAcceptPause, [this] { Accept(); });
        return;
      }
      Add(Socket(std::move(socket)));
      Accept();
    };
    if (tcp_) {
      tcp_->async_accept(accepted);
    } else {
      unix_->acceptor().async_accept(accepted);
    }
  }

  void Add(Socket socket);

  // Asks the next query for its next step, unless one is being asked.
  void AskNext() {
    if (asking_ || jobs_.empty()) return;
    asking_ = true;
    const std::shared_ptr<Job> job = std::move(jobs_.front());
    jobs_.pop_front();
    options_.post_to_program([this, job] {
      const auto start = steady_clock::now();
      const bool last = job->query->Step();
      const auto time = steady_clock::now() - start;
      asio::post(io_, [this, job, last, time] { Stepped(job, last, time); });
    });
  }

  void Stepped(const std::shared_ptr<Job>& job, bool last, steady_clock::duration time) {
    const auto pause = std::min<steady_clock::duration>(time * (kQueryShare - 1), kMaxQueryPause);
    const auto timer = std::make_shared<asio::steady_timer>(io_, pause);
    timer->async_wait([this, timer](const error_code&) {
      asking_ = false;
      AskNext();
    });
    if (!last) {
      jobs_.push_back(job);
    } else if (job->query->finish_is_slow()) {
      asio::post(slow_, [this, job] {
        auto result = std::make_shared<QueryResult>(ResultOf(job->query.get()));
        asio::post(io_, [this, job, result] { Finished(job, std::move(*result)); });
      });
    } else {
      Finished(job, ResultOf(job->query.get()));
    }
  }

  static QueryResult ResultOf(Query* query) {
    try {
      return query->Finish();
    } catch (const HttpError& error) {
      return ErrorResponse(error.status(), error.what());
    } catch (const std::exception& error) {
      return ErrorResponse(500, error.what());
    }
  }

  void Finished(const std::shared_ptr<Job>& job, QueryResult result) {
    if (auto* const next = std::get_if<std::shared_ptr<Query>>(&result)) {
      job->query = std::move(*next);
      jobs_.push_back(job);
      AskNext();
      return;
    }
    --unfinished_;
    if (!job->target.empty()) jobs_by_target_.erase(job->target);
    for (const Answered& answered : job->waiting) answered(std::get<HttpResponse>(result));
  }

  HttpServer* const server_;
  HttpServerOptions options_;
  HttpPages* const pages_;
  const std::string machine_ = MachineName();

  asio::io_context io_{1};
  const asio::executor_work_guard<asio::io_context::executor_type> work_{io_.get_executor()};
  // One of the two.
  std::optional<tcp::acceptor> tcp_;
  std::optional<UnixListener> unix_;
  std::set<std::shared_ptr<Session>> sessions_;
  std::set<Session*> followers_;

  // Whose next step is to be asked for, in turn.
  std::deque<std::shared_ptr<Job>> jobs_;
  // Unfinished ones.
  std::map<std::string, std::shared_ptr<Job>> jobs_by_target_;
  std::size_t unfinished_ = 0;
  bool asking_ = false;
  // For queries with a slow end.
  asio::thread_pool slow_{1};
  std::thread thread_;
};

/// A client's connection. Shared with its operations in flight.
class HttpServer::Impl::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Socket socket, Impl* server)
      : server_(server), socket_(std::move(socket)), timer_(*server->io()) {}

  void Start() { AwaitRequest(); }

  void Close() {
    if (std::exchange(state_, State::kClosed) == State::kClosed) return;
    error_code ignored;
    socket_.close(ignored);
    timer_.cancel(ignored);
    server_->followers_.erase(this);
    server_->sessions_.erase(shared_from_this());
  }

  // Sends the batch when the client has read those before, unless too many wait. After a gap,
  // nothing is added until the client has been told.
  void Offer(const EventBatch& batch) {
    if (missed_ != 0 || waiting_.size() == server_->options().max_batches) {
      missed_ += batch.events;
      return;
    }
    waiting_.push_back(batch.text);
    if (!writing_events_) WriteEvents();
  }

 private:
  enum class State { kIdle, kReading, kAsking, kWriting, kFollowing, kLingering, kClosed };

  // Enters a state that lasts at most so long.
  void Enter(State state, milliseconds time) {
    state_ = state;
    StartTimer(time);
  }

  void StartTimer(milliseconds time) {
    timer_.expires_after(time);
    timer_.async_wait([self = this->shared_from_this()](const error_code& error) {
      // The timer may have been set anew after it expired.
      if (!error && self->timer_.expiry() <= steady_clock::now()) self->OnTimeout();
    });
  }

  void OnTimeout() {
    if (state_ == State::kReading) {
      keep_alive_ = false;
      Respond(ErrorResponse(408, "the request did not arrive in time; send it at once"));
    } else if (state_ == State::kAsking) {
      keep_alive_ = false;
      Respond(ErrorResponse(503, "the program is too busy to answer; try again"));
    } else {
      Close();
    }
  }

  void AwaitRequest() {
    if (input_.size() != 0) return Read();
    Enter(State::kIdle, server_->options().idle_time);
    socket_.async_wait(Socket::wait_read,
                       [self = this->shared_from_this()](const error_code& error) {
                         if (self->state_ != State::kIdle) return;
                         if (error) return self->Close();
                         self->Read();
                       });
  }

  void Read() {
    Enter(State::kReading, server_->options().request_time);
    parser_.emplace();
    Limit(&*parser_);
    http::async_read_header(
        socket_, input_, *parser_,
        [self = this->shared_from_this()](const error_code& error, std::size_t) {
          if (self->state_ == State::kReading) self->OnRead(error);
        });
  }

  void OnRead(const error_code& error) {
    if (error == http::error::end_of_stream || error == asio::error::connection_reset) {
      return Close();
    }
    const bool parsed = parser_->is_header_done();
    // After anything else, what follows cannot be told from a body.
    keep_alive_ = !error && parser_->get().keep_alive();
    is_head_ = parsed && parser_->get().method() == http::verb::head;
    version_ = parsed ? parser_->get().version() : 11;
    try {
      if (error) throw ErrorOf(error);
      Answer(RequestOf(*parser_, server_->machine()));
    } catch (const HttpError& refused) {
      if (refused.status() == 413) keep_alive_ = false;
      Respond(ErrorResponse(refused.status(), refused.what()));
    } catch (const std::exception& failure) {
      Respond(ErrorResponse(500, failure.what()));
    }
  }

  void Answer(const HttpRequest& request) {
    HttpAnswer answer = server_->pages()->Get(request);
    if (const auto* const response = std::get_if<HttpResponse>(&answer)) return Respond(*response);
    if (const auto* const stream = std::get_if<EventStream>(&answer)) {
      return Follow(stream->first);
    }
    Enter(State::kAsking, server_->options().query_time);
    const auto target = parser_->get().target();
    server_->Ask(std::string(target.data(), target.size()),
                 std::move(std::get<std::shared_ptr<Query>>(answer)),
                 [weak = this->weak_from_this()](const HttpResponse& response) {
                   const auto self = weak.lock();
                   if (self && self->state_ == State::kAsking) self->Respond(response);
                 });
  }

  // Writes a response that stays as it is until then.
  template <typename Response>
  void Write(Response* response) {
    Enter(State::kWriting, server_->options().write_time);
    http::async_write(socket_, *response,
                      [self = this->shared_from_this()](const error_code& error, std::size_t) {
                        if (self->state_ != State::kWriting) return;
                        if (error) return self->Close();
                        if (self->keep_alive_) return self->AwaitRequest();
                        self->Linger();
                      });
  }

  void Respond(const HttpResponse& content) {
    if (is_head_) {
      head_response_.emplace();
      SetHead(content, version_, keep_alive_, &*head_response_);
      head_response_->content_length(content.body.size());
      Write(&*head_response_);
    } else {
      response_.emplace();
      SetHead(content, version_, keep_alive_, &*response_);
      response_->body() = content.body;
      response_->prepare_payload();
      Write(&*response_);
    }
  }

  // Closing at once would take the answer away from a client that is still sending.
  void Linger() {
    error_code ignored;
    socket_.shutdown(Socket::shutdown_send, ignored);
    Enter(State::kLingering, kLinger);
    Discard();
  }

  void Discard() {
    socket_.async_read_some(asio::buffer(discarded_), [self = this->shared_from_this()](
                                                          const error_code& error, std::size_t) {
      if (self->state_ == State::kClosed) return;
      // A follower has nothing to say: it has gone, or is no client of ours.
      if (error || self->state_ != State::kLingering) return self->Close();
      self->Discard();
    });
  }

  void Follow(const std::string& first) {
    keep_alive_ = false;
    head_response_.emplace();
    SetHead({200, "text/event-stream", {}}, version_, false, &*head_response_);
    if (is_head_) {
      return Write(&*head_response_);
    }
    state_ = State::kFollowing;
    std::ostringstream head;
    head << head_response_->base();
    waiting_.push_back(std::make_shared<const std::string>(head.str() + first));
    server_->followers_.insert(this);
    Discard();
    WriteEvents();
  }

  // Writes what waits, then what was missed.
  void WriteEvents() {
    if (waiting_.empty() && missed_ != 0) {
      waiting_.push_back(std::make_shared<const std::string>(
          server_->pages()->MissedText(std::exchange(missed_, 0))));
    }
    writing_events_ = !waiting_.empty();
    if (!writing_events_) {
      error_code ignored;
      timer_.cancel(ignored);
      return;
    }
    StartTimer(server_->options().write_time);
    asio::async_write(socket_, asio::buffer(*waiting_.front()),
                      [self = this->shared_from_this()](const error_code& error, std::size_t) {
                        if (self->state_ != State::kFollowing) return;
                        if (error) return self->Close();
                        self->waiting_.pop_front();
                        self->WriteEvents();
                      });
  }

  Impl* const server_;
  Socket socket_;
  // How long the state may last; for a follower, how long a write may take.
  asio::steady_timer timer_;
  State state_ = State::kIdle;

  boost::beast::flat_buffer input_{2 * kMaxHeader};
  std::optional<Parser> parser_;
  bool keep_alive_ = false;
  bool is_head_ = false;
  unsigned version_ = 11;
  // Being written.
  std::optional<http::response<http::string_body>> response_;
  std::optional<http::response<http::empty_body>> head_response_;
  // Events; the first ones are being written.
  std::deque<std::shared_ptr<const std::string>> waiting_;
  bool writing_events_ = false;
  std::uint64_t missed_ = 0;
  std::array<char, 1024> discarded_{};
};

void HttpServer::Impl::Add(Socket socket) {
  if (sessions_.size() == options_.max_connections) {
    SendAtOnce(socket.native_handle(), kTooManyClients);
    return;
  }
  if (tcp_) {
    error_code ignored;
    socket.set_option(tcp::no_delay(true), ignored);
  }
  const auto session = std::make_shared<Session>(std::move(socket), this);
  sessions_.insert(session);
  session->Start();
}

void HttpServer::Impl::Ask(const std::string& target, std::shared_ptr<Query> query,
                           Answered answered) {
  const auto same = jobs_by_target_.find(target);
  if (same != jobs_by_target_.end()) {
    same->second->waiting.push_back(std::move(answered));
    return;
  }
  if (unfinished_ == options_.max_queries) {
    answered(ErrorResponse(503, "too many requests wait for an answer; try again"));
    return;
  }
  ++unfinished_;
  const auto job = std::make_shared<Job>(Job{target, std::move(query), {std::move(answered)}});
  if (!target.empty()) jobs_by_target_.emplace(target, job);
  jobs_.push_back(job);
  AskNext();
}

void HttpServer::Impl::Broadcast(const EventBatch& batch) {
  // A failed write may end a follower.
  const std::set<Session*> followers = followers_;
  for (Session* const follower : followers) follower->Offer(batch);
}

HttpServer::HttpServer(HttpServerOptions options, HttpPages* pages)
    : impl_(std::make_unique<Impl>(this, std::move(options), pages)) {
  impl_->StartThread();
}

HttpServer::~HttpServer() = default;

const HttpAddress& HttpServer::address() const { return impl_->options().address; }

void HttpServer::Post(std::function<void()> function) {
  asio::post(*impl_->io(), std::move(function));
}

void HttpServer::After(milliseconds time, std::function<void()> function) {
  const auto timer = std::make_shared<asio::steady_timer>(*impl_->io(), time);
  timer->async_wait([timer, function = std::move(function)](const error_code&) { function(); });
}

void HttpServer::Ask(std::shared_ptr<Query> query,
                     std::function<void(const HttpResponse&)> answered) {
  impl_->Ask({}, std::move(query), std::move(answered));
}

void HttpServer::Broadcast(const EventBatch& batch) { impl_->Broadcast(batch); }

std::size_t HttpServer::followers() const { return impl_->followers_.size(); }

HttpRequest ReadHttpRequest(const std::string& head, const std::string& machine) {
  Parser parser;
  Limit(&parser);
  error_code error;
  parser.put(asio::buffer(head), error);
  if (error) throw ErrorOf(error);
  if (!parser.is_header_done()) throw HttpError(400, "the request is not complete");
  return RequestOf(parser, machine);
}

}  // namespace reference
