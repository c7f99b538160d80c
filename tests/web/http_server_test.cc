// The HTTP server: what it serves, and what clients cannot do to it.

#include "reference/web/http_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <boost/system/system_error.hpp>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/refused_accepts.h"
#include "tests/support/test_folder.h"

namespace reference {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// Takes so many steps and then answers with their number.
class CountingQuery : public Query {
 public:
  CountingQuery(int steps, std::atomic<int>* all_steps, std::shared_ptr<Query> next = nullptr)
      : steps_(steps), all_steps_(all_steps), next_(std::move(next)) {}

  bool Step() override {
    ++*all_steps_;
    return ++taken_ == steps_;
  }
  QueryResult Finish() override {
    if (next_) return next_;
    if (steps_ == 13) throw HttpError(404, "thirteen");
    return HttpResponse{200, "text/plain", std::to_string(taken_) + " steps\n"};
  }
  bool finish_is_slow() const override { return steps_ % 2 == 0; }

 private:
  const int steps_;
  // Of all queries.
  std::atomic<int>* const all_steps_;
  int taken_ = 0;
  const std::shared_ptr<Query> next_;
};

class FakePages : public HttpPages {
 public:
  void Start(HttpServer* /*server*/) override {}

  HttpAnswer Get(const HttpRequest& request) override {
    const std::string what = request.path.empty() ? "" : request.path.front();
    if (what == "events") return EventStream{"first\n\n"};
    if (what == "steps") {
      ++queries_;
      return std::make_shared<CountingQuery>(std::stoi(request.path.at(1)), &steps_);
    }
    if (what == "two") {
      return std::make_shared<CountingQuery>(1, &steps_,
                                             std::make_shared<CountingQuery>(2, &steps_));
    }
    // More than fits into the sockets' buffers.
    if (what == "big") return HttpResponse{200, "text/plain", std::string(1U << 25U, 'x')};
    if (what == "error") throw HttpError(404, "no such thing");
    if (what == "fault") throw std::runtime_error("a fault");
    return HttpResponse{200, "text/plain", "/" + what + '\n'};
  }

  std::string MissedText(std::uint64_t events) override {
    return "missed " + std::to_string(events) + "\n\n";
  }

  int queries() const { return queries_; }
  int steps() const { return steps_; }

 private:
  std::atomic<int> queries_{0};
  std::atomic<int> steps_{0};
};

/// A connection that says what it likes.
class Client {
 public:
  explicit Client(const HttpAddress& address) : socket_(io_) {
    socket_.connect({asio::ip::make_address(address.ip), address.port});
  }

  void Send(const std::string& text) { asio::write(socket_, asio::buffer(text)); }
  void Get(const std::string& target) {
    Send("GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
  }

  /// Until the server closes the connection.
  std::string ReadAll() {
    error_code error;
    asio::read(socket_, asio::dynamic_buffer(received_), error);
    return std::exchange(received_, {});
  }

  /// Through the first `end`, which must come.
  std::string ReadUntil(const std::string& end) {
    const std::size_t size = asio::read_until(socket_, asio::dynamic_buffer(received_), end);
    std::string text = received_.substr(0, size);
    received_.erase(0, size);
    return text;
  }

  tcp::socket& socket() { return socket_; }

 private:
  asio::io_context io_;
  tcp::socket socket_;
  std::string received_;
};

class HttpServerTest : public ::testing::Test {
 protected:
  ~HttpServerTest() override {
    work_.reset();
    io_.stop();
    if (program_.joinable()) program_.join();
  }

  void Start(HttpServerOptions options = {}) {
    if (options.address.unix_path.empty()) options.address.ip = "127.0.0.1";
    options.post_to_program = [this](std::function<void()> function) {
      asio::post(io_, std::move(function));
    };
    server_.emplace(std::move(options), &pages_);
  }

  // What waits for the program's thread is done from now on.
  void StartProgram() {
    program_ = std::thread([this] { io_.run(); });
  }

  std::string Answer(const std::string& request) {
    Client client(server_->address());
    client.Send(request);
    return client.ReadAll();
  }

  std::string AnswerTo(const std::string& target) {
    return Answer("GET " + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
  }

  std::size_t Followers() {
    std::promise<std::size_t> followers;
    server_->Post([&] { followers.set_value(server_->followers()); });
    return followers.get_future().get();
  }

  void AwaitFollowers(std::size_t count) {
    while (Followers() != count) std::this_thread::sleep_for(milliseconds(1));
  }

  void Broadcast(const std::string& text, std::uint64_t events) {
    std::promise<void> sent;
    server_->Post([&] {
      server_->Broadcast({std::make_shared<const std::string>(text), events});
      sent.set_value();
    });
    sent.get_future().get();
  }

  // Until the server has ended a connection, and serves another client.
  void AwaitRoom() {
    std::string answer;
    while (answer.find(" 200 OK") == std::string::npos) {
      Client client(server_->address());
      error_code ignored;
      asio::write(client.socket(),
                  asio::buffer(std::string("GET / HTTP/1.0\r\nHost: localhost\r\n\r\n")), ignored);
      answer = client.ReadAll();
    }
  }

  FakePages pages_;
  asio::io_context io_;
  std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work_{
      io_.get_executor()};
  std::thread program_;
  std::optional<HttpServer> server_;
};

TEST_F(HttpServerTest, EveryAnswerTellsTheBrowserToTrustOnlyThisServer) {
  Start();
  for (const char* const target : {"/", "/error", "/fault", "bad"}) {
    EXPECT_THAT(
        AnswerTo(target),
        AllOf(HasSubstr("\r\nCache-Control: no-store\r\n"),
              HasSubstr("\r\nX-Content-Type-Options: nosniff\r\n"),
              HasSubstr("\r\nReferrer-Policy: no-referrer\r\n"),
              HasSubstr("\r\nCross-Origin-Resource-Policy: same-origin\r\n"),
              HasSubstr("\r\nContent-Security-Policy: default-src 'none'; script-src 'self'; "
                        "style-src 'self'; img-src 'self'; connect-src 'self'; base-uri 'none'; "
                        "form-action 'none'; frame-ancestors 'none'\r\n"),
              Not(HasSubstr("Access-Control"))))
        << target;
  }
}

TEST_F(HttpServerTest, AFileIsServed) {
  Start();
  const std::string answer = AnswerTo("/x.css");
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answer, HasSubstr("\r\nContent-Type: text/plain\r\n"));
  EXPECT_THAT(answer, HasSubstr("\r\nContent-Length: 7\r\n"));
  EXPECT_THAT(answer, EndsWith("\r\n\r\n/x.css\n"));
}

TEST_F(HttpServerTest, AHeadRequestHasTheSameHeadAndNoBody) {
  Start();
  const std::string answer =
      Answer("HEAD /x.css HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
  EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(answer, HasSubstr("\r\nContent-Length: 7\r\n"));
  EXPECT_THAT(answer, EndsWith("\r\n\r\n"));
  EXPECT_THAT(Answer("HEAD /events HTTP/1.1\r\nHost: localhost\r\n\r\n"),
              AllOf(HasSubstr("text/event-stream"), EndsWith("\r\n\r\n")));
}

TEST_F(HttpServerTest, ErrorsHaveTheirStatusAndText) {
  Start();
  EXPECT_THAT(AnswerTo("/error"), AllOf(StartsWith("HTTP/1.1 404 "),
                                        EndsWith("\r\n\r\n{\"error\":\"no such thing\"}\n")));
  EXPECT_THAT(AnswerTo("/fault"), StartsWith("HTTP/1.1 500 "));
  EXPECT_THAT(Answer("POST / HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"),
              AllOf(StartsWith("HTTP/1.1 405 "), HasSubstr("\r\nAllow: GET, HEAD\r\n")));
  EXPECT_THAT(Answer("GET / HTTP/1.1\r\nHost: rebound.example.com\r\nConnection: close\r\n\r\n"),
              AllOf(StartsWith("HTTP/1.1 403 "), HasSubstr("IP address")));
}

TEST_F(HttpServerTest, AfterBytesThatAreNoRequestTheConnectionEnds) {
  Start();
  EXPECT_THAT(Answer("hello\r\n\r\n"),
              AllOf(StartsWith("HTTP/1.1 400 "), HasSubstr("\r\nConnection: close\r\n")));
  EXPECT_THAT(Answer("GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 5\r\n\r\nGET /"),
              StartsWith("HTTP/1.1 413 "));
  EXPECT_THAT(Answer("GET /" + std::string(9000, 'x')), StartsWith("HTTP/1.1 431 "));
}

TEST_F(HttpServerTest, AConnectionServesManyRequestsInOrder) {
  Start();
  StartProgram();
  Client client(server_->address());
  client.Send(
      "GET /a HTTP/1.1\r\nHost: localhost\r\n\r\n"
      "GET /steps/3 HTTP/1.1\r\nHost: localhost\r\n\r\n"
      "GET /error HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_THAT(client.ReadUntil("/a\n"), StartsWith("HTTP/1.1 200 OK"));
  EXPECT_THAT(client.ReadUntil("3 steps\n"), StartsWith("HTTP/1.1 200 OK"));
  EXPECT_THAT(client.ReadUntil("}\n"), StartsWith("HTTP/1.1 404 "));
  client.Get("/b");
  EXPECT_THAT(client.ReadUntil("/b\n"), StartsWith("HTTP/1.1 200 OK"));
}

TEST_F(HttpServerTest, AQueryIsAnsweredInSteps) {
  Start();
  StartProgram();
  for (const char* const steps : {"1", "2", "7", "100"}) {
    EXPECT_THAT(AnswerTo(std::string("/steps/") + steps),
                EndsWith(std::string("\r\n\r\n") + steps + " steps\n"));
  }
  EXPECT_THAT(AnswerTo("/two"), EndsWith("\r\n\r\n2 steps\n"));
  EXPECT_THAT(AnswerTo("/steps/13"), StartsWith("HTTP/1.1 404 "));
}

TEST_F(HttpServerTest, RequestsForTheSameShareAQuery) {
  Start();
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 20; ++i) {
    clients.push_back(std::make_unique<Client>(server_->address()));
    clients.back()->Get("/steps/1");
  }
  // Each of them has been given to the pages by then.
  while (pages_.queries() < 20) std::this_thread::sleep_for(milliseconds(1));
  AwaitFollowers(0);
  StartProgram();
  for (const auto& client : clients) {
    EXPECT_THAT(client->ReadUntil("1 steps\n"), StartsWith("HTTP/1.1 200 OK"));
  }
  EXPECT_EQ(pages_.steps(), 1);
}

TEST_F(HttpServerTest, WaitingQueriesAreBounded) {
  HttpServerOptions options;
  options.max_queries = 2;
  Start(options);
  Client first(server_->address());
  first.Get("/steps/1");
  Client second(server_->address());
  second.Get("/steps/3");
  while (pages_.queries() < 2) std::this_thread::sleep_for(milliseconds(1));
  EXPECT_THAT(AnswerTo("/steps/5"),
              AllOf(StartsWith("HTTP/1.1 503 "), HasSubstr("\r\nRetry-After: 1\r\n")));
  // Other paths do not suffer.
  EXPECT_THAT(AnswerTo("/a"), StartsWith("HTTP/1.1 200 OK"));
  StartProgram();
  EXPECT_THAT(first.ReadUntil("1 steps\n"), StartsWith("HTTP/1.1 200 OK"));
  EXPECT_THAT(second.ReadUntil("3 steps\n"), StartsWith("HTTP/1.1 200 OK"));
  EXPECT_THAT(AnswerTo("/steps/5"), StartsWith("HTTP/1.1 200 OK"));
}

TEST_F(HttpServerTest, AProgramThatDoesNotAnswerIsSaidToBeBusy) {
  HttpServerOptions options;
  options.query_time = milliseconds(20);
  Start(options);
  EXPECT_THAT(AnswerTo("/steps/1"), StartsWith("HTTP/1.1 503 "));
  StartProgram();
}

TEST_F(HttpServerTest, AQueryOutlivesItsClient) {
  Start();
  {
    Client client(server_->address());
    client.Get("/steps/1");
    while (pages_.queries() < 1) std::this_thread::sleep_for(milliseconds(1));
  }
  StartProgram();
  EXPECT_THAT(AnswerTo("/steps/2"), EndsWith("2 steps\n"));
}

TEST_F(HttpServerTest, TheServerEndsWithQueriesUnanswered) {
  Start();
  Client client(server_->address());
  client.Get("/steps/1");
  while (pages_.queries() < 1) std::this_thread::sleep_for(milliseconds(1));
  server_.reset();
  EXPECT_EQ(client.ReadAll(), "");
}

TEST_F(HttpServerTest, AClientThatSendsItsRequestTooSlowlyIsTold) {
  HttpServerOptions options;
  options.request_time = milliseconds(20);
  Start(options);
  Client client(server_->address());
  client.Send("GET / HTTP/1.1\r\n");
  EXPECT_THAT(client.ReadAll(), StartsWith("HTTP/1.1 408 "));
}

TEST_F(HttpServerTest, AnIdleConnectionIsClosed) {
  HttpServerOptions options;
  options.idle_time = milliseconds(20);
  Start(options);
  Client client(server_->address());
  EXPECT_EQ(client.ReadAll(), "");
}

TEST_F(HttpServerTest, ConnectionsAreBounded) {
  HttpServerOptions options;
  options.max_connections = 2;
  Start(options);
  std::optional<Client> first(server_->address());
  first->Get("/a");
  first->ReadUntil("/a\n");
  Client second(server_->address());
  second.Get("/b");
  second.ReadUntil("/b\n");
  EXPECT_THAT(Client(server_->address()).ReadAll(), StartsWith("HTTP/1.1 503 "));
  first.reset();
  AwaitRoom();
}

TEST_F(HttpServerTest, AClientThatDoesNotReadItsAnswerIsEnded) {
  HttpServerOptions options;
  options.write_time = milliseconds(20);
  options.max_connections = 1;
  Start(options);
  Client client(server_->address());
  client.Get("/big");
  AwaitRoom();
}

TEST_F(HttpServerTest, AClientThatStaysAfterTheLastAnswerIsEnded) {
  HttpServerOptions options;
  options.max_connections = 1;
  Start(options);
  Client client(server_->address());
  client.Send("GET /a HTTP/1.0\r\nHost: localhost\r\n\r\n");
  EXPECT_THAT(client.ReadAll(), EndsWith("/a\n"));
  AwaitRoom();
}

TEST_F(HttpServerTest, ClientsWaitWhileThereAreNoFileDescriptors) {
  Start();
  std::optional<RefusedAccepts> accepts(std::in_place);
  Client client(server_->address());
  client.Get("/a");
  while (accepts->count() < 2) std::this_thread::sleep_for(milliseconds(1));
  accepts.reset();
  EXPECT_THAT(client.ReadUntil("/a\n"), StartsWith("HTTP/1.1 200 OK"));
}

TEST_F(HttpServerTest, FollowersGetEveryBatch) {
  Start();
  Client first(server_->address());
  Client second(server_->address());
  for (Client* const client : {&first, &second}) {
    client->Get("/events");
    EXPECT_THAT(
        client->ReadUntil("first\n\n"),
        AllOf(StartsWith("HTTP/1.1 200 OK\r\n"),
              HasSubstr("\r\nContent-Type: text/event-stream\r\n"),
              HasSubstr("\r\nCache-Control: no-store\r\n"), Not(HasSubstr("Content-Length"))));
  }
  AwaitFollowers(2);
  Broadcast("one\n\n", 1);
  EXPECT_EQ(first.ReadUntil("one\n\n"), "one\n\n");
  EXPECT_EQ(second.ReadUntil("one\n\n"), "one\n\n");
}

TEST_F(HttpServerTest, AFollowerThatGoesAwayIsForgotten) {
  Start();
  {
    Client client(server_->address());
    client.Get("/events");
    AwaitFollowers(1);
  }
  AwaitFollowers(0);
}

TEST_F(HttpServerTest, AFollowerThatSpeaksIsEnded) {
  Start();
  Client client(server_->address());
  client.Get("/events");
  AwaitFollowers(1);
  client.Send("x");
  AwaitFollowers(0);
}

TEST_F(HttpServerTest, ASlowFollowerIsToldHowMuchItMissed) {
  HttpServerOptions options;
  options.write_time = seconds(100);
  options.max_batches = 3;
  Start(options);
  Client client(server_->address());
  client.Get("/events");
  client.ReadUntil("first\n\n");
  AwaitFollowers(1);
  // More than fits into the sockets' buffers, so that the write cannot end before the client reads.
  const std::string big = std::string(std::size_t{32} << 20U, 'x') + "\n\n";
  Broadcast(big, 1);
  Broadcast("second\n\n", 1);
  Broadcast("third\n\n", 1);
  Broadcast("lost\n\n", 3);
  Broadcast("lost\n\n", 4);
  EXPECT_EQ(client.ReadUntil("x\n\n").size(), big.size());
  EXPECT_EQ(client.ReadUntil("missed 7\n\n"), "second\n\nthird\n\nmissed 7\n\n");
  Broadcast("last\n\n", 1);
  EXPECT_EQ(client.ReadUntil("last\n\n"), "last\n\n");
}

TEST_F(HttpServerTest, AFollowerThatDoesNotReadIsEnded) {
  HttpServerOptions options;
  options.write_time = milliseconds(20);
  Start(options);
  Client client(server_->address());
  client.Get("/events");
  client.ReadUntil("first\n\n");
  AwaitFollowers(1);
  Broadcast(std::string(std::size_t{32} << 20U, 'x'), 1);
  AwaitFollowers(0);
}

TEST_F(HttpServerTest, OnlyThisUserMayConnectToAUnixSocket) {
  const TestFolder folder;
  HttpServerOptions options;
  options.address.unix_path = folder.Path("http.sock");
  Start(options);
  struct stat found {};
  ASSERT_EQ(stat(server_->address().unix_path.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 0777U, 0600U);
  asio::io_context io;
  asio::local::stream_protocol::socket client(io);
  client.connect(server_->address().unix_path);
  asio::write(client, asio::buffer(std::string("GET /a HTTP/1.0\r\nHost: localhost\r\n\r\n")));
  std::string answer;
  error_code error;
  asio::read(client, asio::dynamic_buffer(answer), error);
  EXPECT_THAT(answer, EndsWith("\r\n\r\n/a\n"));
}

TEST_F(HttpServerTest, AnAddressInUseIsRefusedWithTheRemedy) {
  Start();
  HttpServerOptions options;
  options.address = server_->address();
  try {
    const HttpServer second(options, &pages_);
    FAIL() << "it listens";
  } catch (const boost::system::system_error& error) {
    EXPECT_EQ(error.code(), boost::system::errc::address_in_use);
    EXPECT_THAT(error.what(), HasSubstr("choose another address or port for --http"));
  }
}

TEST_F(HttpServerTest, IPv6IsServedToo) {
  HttpServerOptions options;
  options.address.ip = "::1";
  options.post_to_program = [](const std::function<void()>&) {};
  try {
    server_.emplace(options, &pages_);
  } catch (const boost::system::system_error& error) {
    GTEST_SKIP() << "this machine has no IPv6: " << error.what();
  }
  EXPECT_THAT(Answer("GET /a HTTP/1.0\r\nHost: [::1]:80\r\n\r\n"), EndsWith("/a\n"));
}

}  // namespace
}  // namespace reference
