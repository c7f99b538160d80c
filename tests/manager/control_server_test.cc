// The control socket: its limits, a system without free resources, and a client without a manager.

#include "reference/manager/program/control_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/system/system_error.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "reference/manager/program/control_client.h"
#include "reference/manager/views/status.h"
#include "tests/manager/process.h"
#include "tests/support/refused_accepts.h"

namespace reference {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
using Json = nlohmann::ordered_json;
using Next = AnswerPiece::Next;

Answer OneLine(const std::string& line) {
  return [line] { return AnswerPiece{line + '\n', Next::kEnd}; };
}

class ControlServerTest : public ::testing::Test {
 protected:
  using Socket = boost::asio::local::stream_protocol::socket;

  // Runs until the server has tried for the second time.
  void RunWithoutFileDescriptors() {
    const RefusedAccepts accepts;
    while (accepts.count() < 2 && io_.run_one_for(seconds(10)) != 0) continue;
    EXPECT_EQ(accepts.count(), 2);
  }

  void RunUntil(const std::function<bool()>& condition) {
    while (!condition() && io_.run_one_for(seconds(10)) != 0) continue;
    EXPECT_TRUE(condition());
  }

  static void Send(Socket* client, const std::string& text) {
    boost::asio::write(*client, boost::asio::buffer(text));
  }

  // What the server sends until it closes the connection.
  std::string Received(Socket* client) {
    std::string text;
    bool closed = false;
    boost::asio::async_read(
        *client, boost::asio::dynamic_buffer(text),
        [&closed](const boost::system::error_code&, std::size_t) { closed = true; });
    RunUntil([&closed] { return closed; });
    return text;
  }

  // Serves a command until it ends, within bounds. Returns its exit status.
  int End(Process* command) {
    for (int i = 0; i < 6000 && command->Runs(); ++i) io_.run_one_for(milliseconds(10));
    return command->Wait();
  }

  const ScratchDirectory files_{};
  const std::string path_ = files_.File("control.sock");
  boost::asio::io_context io_;
  Socket client_{io_};
  int asked_ = 0;
};

TEST_F(ControlServerTest, AnswersOnceThereAreFileDescriptorsAgain) {
  ControlServer server(&io_, path_, [this](const std::string& request) {
    ++asked_;
    return OneLine("the answer to " + request);
  });
  client_.connect(path_);
  RunWithoutFileDescriptors();
  EXPECT_EQ(asked_, 0);
  Send(&client_, "a request\n");
  EXPECT_EQ(Received(&client_), "the answer to a request\n");
  EXPECT_EQ(asked_, 1);
}

TEST_F(ControlServerTest, StopsWhileItWaitsForFileDescriptors) {
  {
    ControlServer server(&io_, path_, OneLine);
    client_.connect(path_);
    RunWithoutFileDescriptors();
    EXPECT_FALSE(io_.stopped());
  }
  io_.run_for(seconds(10));
  EXPECT_TRUE(io_.stopped());
}

TEST_F(ControlServerTest, StaysTheOnlyOneAfterItsSocketWasRemoved) {
  const ControlServer server(&io_, path_, OneLine);
  unlink(path_.c_str());
  EXPECT_THAT(
      [&] { ControlServer(&io_, path_, OneLine); },
      ThrowsMessage<boost::system::system_error>(HasSubstr("another program listens on " + path_)));
}

TEST_F(ControlServerTest, MakesAPieceOnlyOnceTheClientHasReadThePreviousOne) {
  int pieces = 0;
  const std::string text(100'000, 'x');
  ControlServer server(&io_, path_, [&](const std::string&) {
    return [&] {
      return ++pieces < 50 ? AnswerPiece{text, Next::kMore} : AnswerPiece{text, Next::kEnd};
    };
  });
  client_.connect(path_);
  Send(&client_, "request\n");
  // The socket's buffer takes some pieces; then nothing is left to run.
  while (io_.run_one_for(milliseconds(200)) != 0) continue;
  EXPECT_GT(pieces, 0);
  EXPECT_LT(pieces, 20);
  EXPECT_EQ(Received(&client_).size(), 50 * text.size());
}

TEST_F(ControlServerTest, WaitsForAPieceThatComesLater) {
  int calls = 0;
  ControlServer server(&io_, path_, [&](const std::string&) {
    return [&] {
      return ++calls < 3 ? AnswerPiece{"", Next::kLater} : AnswerPiece{"here\n", Next::kEnd};
    };
  });
  client_.connect(path_);
  Send(&client_, "request\n");
  EXPECT_EQ(Received(&client_), "here\n");
  EXPECT_EQ(calls, 3);
}

TEST_F(ControlServerTest, ForgetsAClientThatEnds) {
  const auto answer = std::make_shared<int>();
  ControlServer server(&io_, path_, [&answer](const std::string&) {
    return [answer] { return AnswerPiece{"", Next::kLater}; };
  });
  client_.connect(path_);
  Send(&client_, "request\n");
  RunUntil([&answer] { return answer.use_count() > 1; });
  client_.close();
  RunUntil([&answer] { return answer.use_count() == 1; });
}

TEST_F(ControlServerTest, ClosesOneThatTakesTooLong) {
  const std::string text(5'000'000, 'x');
  ControlServer server(
      &io_, path_,
      [&text](const std::string&) { return [&text] {
                                      return AnswerPiece{text, Next::kEnd};
                                    }; },
      milliseconds(50));
  client_.connect(path_);
  EXPECT_EQ(Received(&client_), "") << "it has sent no request";
  Socket reader(io_, boost::asio::local::stream_protocol());
  reader.connect(path_);
  Send(&reader, "request\n");
  while (io_.run_one_for(milliseconds(500)) != 0) continue;
  EXPECT_LT(Received(&reader).size(), text.size()) << "it has not read the answer";
}

TEST_F(ControlServerTest, LimitsTheTimeOfEachPieceOnly) {
  const milliseconds patience(1'000);
  int pieces = 0;
  ControlServer server(
      &io_, path_,
      [&](const std::string&) {
        return [&] {
          if (++pieces == 2) return AnswerPiece{"two\n", Next::kEnd};
          std::this_thread::sleep_for(patience);
          return AnswerPiece{"one\n", Next::kMore};
        };
      },
      patience);
  client_.connect(path_);
  Send(&client_, "request\n");
  EXPECT_EQ(Received(&client_), "one\ntwo\n");
}

TEST_F(ControlServerTest, ClosesOneWithAnEndlessRequest) {
  ControlServer server(&io_, path_, OneLine, std::chrono::hours(1));
  client_.connect(path_);
  Send(&client_, std::string(ControlServer::kMaxRequest + 1, 'x'));
  EXPECT_EQ(Received(&client_), "");
}

TEST_F(ControlServerTest, LimitsTheNumberOfClients) {
  ControlServer server(&io_, path_, OneLine);
  std::vector<Socket> clients;
  for (std::size_t i = 0; i < ControlServer::kMaxClients; ++i) {
    clients.emplace_back(io_).connect(path_);
  }
  client_.connect(path_);
  EXPECT_THAT(Received(&client_), HasSubstr("the manager has too many clients"));
  Send(&clients.back(), "served\n");
  EXPECT_EQ(Received(&clients.back()), "served\n");
  Socket next(io_);
  next.connect(path_);
  Send(&next, "next\n");
  EXPECT_EQ(Received(&next), "next\n");
}

// The command `events`, given a manager whose events the test chooses.
TEST_F(ControlServerTest, EventsShowsHowManyItMissedAndEscapesTheOthers) {
  ControlServer server(&io_, path_, [](const std::string& request) {
    EXPECT_EQ(request, R"({"request":"events"})");
    return OneLine(R"({"missed":3})"
                   "\n"
                   R"({"event":"in sync\u001b[2J"})"
                   "\n"
                   R"({"exit_status":0})");
  });
  Process events({ZUSKUX_MANAGER, "events", "--control", path_});
  EXPECT_EQ(End(&events), 0);
  EXPECT_EQ(events.out(), "missed 3 events\nin sync\\x1b[2J\n");
}

// The command `watch`, given a manager whose status the test chooses.
class WatchTest : public ControlServerTest {
 protected:
  static std::string Status(const std::string& installed) {
    return R"({"status":{"settled":true,"summary":{"pending":0,"installed":)" + installed +
           R"(,"inactive":0,"sent":0,"failed":0,"removed":0}},"exit_status":0})";
  }

  const std::vector<std::string> words_ = {ZUSKUX_MANAGER, "watch", "--control", path_};
};

TEST_F(WatchTest, WritesALineOnlyWhenSomethingChanges) {
  ControlServer server(&io_, path_, [this](const std::string& request) {
    EXPECT_EQ(request, R"({"request":"status"})");
    return OneLine(Status(++asked_ < 3 ? "1" : "2"));
  });
  Process watch(words_);
  // The command writes each answer before it asks again.
  RunUntil([this] { return asked_ == 5; });
  EXPECT_THAT(watch.out(), ::testing::MatchesRegex(".{19} settled: 1 object: 1 installed\n"
                                                   ".{19} settled: 2 objects: 2 installed\n"));
  watch.Signal(SIGINT);
  EXPECT_EQ(End(&watch), 0);
}

TEST_F(WatchTest, EndsWhenTheManagerRefuses) {
  ControlServer server(&io_, path_, [](const std::string&) {
    return OneLine(R"({"exit_status":1,"error":"the manager has too many clients; try again"})");
  });
  Process watch(words_);
  EXPECT_EQ(End(&watch), 1);
  EXPECT_EQ(watch.err(), "zuskux-manager: the manager has too many clients; try again\n");
}

TEST_F(WatchTest, EndsWhenItCannotWrite) {
  ControlServer server(&io_, path_, [](const std::string&) { return OneLine(Status("1")); });
  Process watch({"/bin/sh", "-c", "exec \"$@\" >/dev/full", "sh", ZUSKUX_MANAGER, "watch",
                 "--control", path_});
  EXPECT_EQ(End(&watch), 1);
  EXPECT_EQ(watch.err(), "zuskux-manager: cannot write to standard output\n");
}

class ControlClientTest : public ControlServerTest {
 protected:
  // Serves the answer `text` to the client. Returns what the client returns.
  Json Ask(const std::string& text, std::vector<Json>* lines) {
    ControlServer server(&io_, path_, [&text](const std::string&) {
      return [&text] { return AnswerPiece{text, Next::kEnd}; };
    });
    bool ended = false;
    std::thread thread([&] {
      while (!ended) io_.run_one_for(milliseconds(10));
    });
    const auto end = [&] {
      boost::asio::post(io_, [&ended] { ended = true; });
      thread.join();
    };
    try {
      Json last = AskManager(path_, {{"request", "x"}},
                             [lines](const Json& line) { lines->push_back(line); });
      end();
      return last;
    } catch (...) {
      end();
      throw;
    }
  }
};

TEST_F(ControlClientTest, ReturnsTheLastLine) {
  std::vector<Json> lines;
  EXPECT_EQ(Ask("{\"a\":1}\n{\"a\":2}\n{\"exit_status\":3}\n", &lines)["exit_status"], 3);
  EXPECT_EQ(lines, (std::vector<Json>{{{"a", 1}}, {{"a", 2}}}));
}

TEST_F(ControlClientTest, RefusesAnAnswerWithoutAnEndOrThatIsNoJson) {
  std::vector<Json> lines;
  EXPECT_THAT([&] { Ask("{\"a\":1}\n", &lines); },
              ThrowsMessage<std::runtime_error>(HasSubstr("the answer ends early")));
  EXPECT_THAT([&] { Ask("no JSON\n", &lines); },
              ThrowsMessage<std::runtime_error>(HasSubstr("the answer is not from a manager")));
}

TEST_F(ControlClientTest, GivesUpOnASilentManager) {
  const ClientAcceptor silent(
      &io_, path_, [](const ClientAcceptor::Socket&) {}, [](const boost::system::error_code&) {});
  EXPECT_THAT(
      [this] {
        AskManager(path_, {{"request", "x"}});
      },
      ThrowsMessage<std::runtime_error>(HasSubstr("no answer: Connection timed out")));
}

// With ZUSKUX_LONG_TESTS=1, the lines take longer altogether than the client waits for each.
TEST_F(ControlClientTest, WaitsForEachLine) {
  const milliseconds pause(std::getenv("ZUSKUX_LONG_TESTS") != nullptr ? 4'000 : 4);
  boost::asio::local::stream_protocol::acceptor acceptor(
      io_, boost::asio::local::stream_protocol::endpoint(path_));
  std::thread manager([&] {
    Socket client = acceptor.accept();
    for (const std::string line : {"{}\n", "{}\n", "{}\n", "{\"exit_status\":3}\n"}) {
      std::this_thread::sleep_for(pause);
      Send(&client, line);
    }
  });
  EXPECT_EQ(AskManager(path_, {{"request", "x"}})["exit_status"], 3);
  manager.join();
}

TEST_F(ControlClientTest, FailsIfNobodyListens) {
  EXPECT_THAT([this] { AskManager(path_, {}); },
              ThrowsMessage<std::runtime_error>(
                  HasSubstr("the manager on " + path_ + ": cannot connect: No such file")));
}

TEST_F(ControlClientTest, RefusesAPathThatIsTooLong) {
  const std::string path = "/" + std::string(200, 'x');
  EXPECT_THAT([&path] { AskManager(path, {}); },
              ThrowsMessage<std::runtime_error>(
                  HasSubstr("the manager on " + path + ": cannot connect: File name too long")));
}

TEST(StatusTest, RejectsOtherJson) {
  for (const Json& json : {Json(), Json::object(), Json({{"hal", 1}})}) {
    std::ostringstream out;
    EXPECT_THAT(
        [&] { WriteStatus(json, &out); },
        ThrowsMessage<std::runtime_error>(HasSubstr("the answer is not a manager status: ")))
        << json;
  }
}

}  // namespace
}  // namespace reference
