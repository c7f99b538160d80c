// The library's requests, and a result for each, through a Redis server on a Unix socket.
//
//     redis_peer serve list|table SOCKET             takes requests and answers them, until killed
//     redis_peer send list|table SOCKET OBJECTS      prints nanoseconds per request
//
// list: a list of requests and one of results. table: a hash for each object and a set of the
// pending ones, and the same for the answers; pushing a mark onto a list wakes the other side.
// Commands are pipelined.

#include <hiredis/hiredis.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/captured_requests.h"

namespace {

using Clock = std::chrono::steady_clock;
using Reply = std::unique_ptr<redisReply, void (*)(void*)>;

constexpr char kTaken[] = "4096";
// Code, two ids and a duration, as on the HAL's own socket.
constexpr std::size_t kResultSize = 16;

/// A connection that pipelines its commands: they go out when a reply is read.
class Redis {
 public:
  explicit Redis(const char* path) : context_(redisConnectUnix(path), redisFree) {
    if (context_ == nullptr || context_->err != 0) throw std::runtime_error("no Redis server");
  }

  void Append(const std::vector<std::string_view>& command) {
    std::vector<const char*> words;
    std::vector<std::size_t> sizes;
    for (const std::string_view word : command) {
      words.push_back(word.data());
      sizes.push_back(word.size());
    }
    redisAppendCommandArgv(context_.get(), static_cast<int>(words.size()), words.data(),
                           sizes.data());
    ++waiting_;
  }

  /// The reply to the oldest command.
  Reply Read() {
    void* reply = nullptr;
    if (redisGetReply(context_.get(), &reply) != REDIS_OK) {
      throw std::runtime_error(context_->errstr);
    }
    --waiting_;
    Reply owned(static_cast<redisReply*>(reply), freeReplyObject);
    if (owned->type == REDIS_REPLY_ERROR) throw std::runtime_error(owned->str);
    return owned;
  }

  void ReadAll() {
    while (waiting_ > 0) Read();
  }

  Reply Call(const std::vector<std::string_view>& command) {
    Append(command);
    return Read();
  }

 private:
  std::unique_ptr<redisContext, void (*)(redisContext*)> context_;
  std::size_t waiting_ = 0;
};

std::string_view TextOf(const redisReply& reply) { return {reply.str, reply.len}; }

// Blocks until the list holds something, then takes all of it.
std::vector<std::string> TakeList(Redis* redis, std::string_view list) {
  const Reply reply = redis->Call({"BLMPOP", "0", "1", list, "LEFT", "COUNT", kTaken});
  const redisReply& entries = *reply->element[1];
  std::vector<std::string> taken;
  for (std::size_t at = 0; at < entries.elements; ++at) {
    taken.emplace_back(TextOf(*entries.element[at]));
  }
  return taken;
}

// Blocks until there is a mark in `marks`, then takes the keys in `set`.
std::vector<std::string> TakeSet(Redis* redis, std::string_view marks, std::string_view set) {
  TakeList(redis, marks);
  const Reply reply = redis->Call({"SPOP", set, kTaken});
  std::vector<std::string> taken;
  for (std::size_t at = 0; at < reply->elements; ++at) {
    taken.emplace_back(TextOf(*reply->element[at]));
  }
  return taken;
}

class Transport {
 public:
  explicit Transport(const char* socket) : redis_(socket) {}
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  virtual ~Transport() = default;

  /// Sends requests `begin` to `end`.
  virtual void Send(const std::vector<reference::HalRequest>& requests, std::size_t begin,
                    std::size_t end) = 0;
  /// Blocks until results arrive; returns how many did.
  virtual std::size_t TakeResults() = 0;
  /// Blocks until requests arrive and answers them.
  virtual void Answer() = 0;

 protected:
  Redis redis_;
};

class ListTransport : public Transport {
 public:
  using Transport::Transport;

  void Send(const std::vector<reference::HalRequest>& requests, std::size_t begin,
            std::size_t end) override {
    for (; begin < end; ++begin) redis_.Append({"RPUSH", "requests", requests[begin].payload});
    redis_.ReadAll();
  }
  std::size_t TakeResults() override { return TakeList(&redis_, "results").size(); }
  void Answer() override {
    const std::string result(kResultSize, '\0');
    for (std::size_t left = TakeList(&redis_, "requests").size(); left > 0; --left) {
      redis_.Append({"RPUSH", "results", result});
    }
    redis_.ReadAll();
  }
};

class TableTransport : public Transport {
 public:
  using Transport::Transport;

  void Send(const std::vector<reference::HalRequest>& requests, std::size_t begin,
            std::size_t end) override {
    for (; begin < end; ++begin) {
      const std::string key = std::to_string(static_cast<int>(requests[begin].operation)) + ':' +
                              std::to_string(requests[begin].id);
      redis_.Append({"HSET", "wanted:" + key, "payload", requests[begin].payload});
      redis_.Append({"SADD", "waiting", key});
    }
    redis_.Append({"RPUSH", "sent", "1"});
    redis_.ReadAll();
  }
  std::size_t TakeResults() override { return TakeSet(&redis_, "answered", "results").size(); }
  void Answer() override {
    const std::vector<std::string> keys = TakeSet(&redis_, "sent", "waiting");
    for (const std::string& key : keys) redis_.Append({"HGETALL", "wanted:" + key});
    std::vector<Reply> objects;
    for (std::size_t at = 0; at < keys.size(); ++at) objects.push_back(redis_.Read());
    for (std::size_t at = 0; at < keys.size(); ++at) {
      redis_.Append({"HSET", "state:" + keys[at], "payload", TextOf(*objects[at]->element[1])});
      redis_.Append({"SADD", "results", keys[at]});
    }
    redis_.Append({"RPUSH", "answered", "1"});
    redis_.ReadAll();
  }
};

std::unique_ptr<Transport> MakeTransport(std::string_view name, const char* socket) {
  if (name == "list") return std::make_unique<ListTransport>(socket);
  if (name == "table") return std::make_unique<TableTransport>(socket);
  throw std::runtime_error("the transport must be list or table");
}

void Send(Transport* transport, std::size_t objects) {
  const std::vector<reference::HalRequest> requests = bench::CaptureRequests(objects);
  const Clock::time_point begin = Clock::now();
  std::size_t sent = 0;
  std::size_t answered = 0;
  while (answered < requests.size()) {
    const std::size_t outstanding = sent - answered;
    if (sent < requests.size() && outstanding <= bench::kWindow / 2) {
      const std::size_t end = std::min(requests.size(), sent + bench::kWindow - outstanding);
      transport->Send(requests, sent, end);
      sent = end;
    }
    answered += transport->TakeResults();
  }
  const std::chrono::duration<double, std::nano> time = Clock::now() - begin;
  std::cout << "request " << time.count() / static_cast<double>(requests.size()) << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string_view what = argc > 3 ? argv[1] : "";
    if (what == "serve" && argc == 4) {
      const auto transport = MakeTransport(argv[2], argv[3]);
      while (true) transport->Answer();
    }
    if (what == "send" && argc == 5) {
      Send(MakeTransport(argv[2], argv[3]).get(), std::strtoul(argv[4], nullptr, 10));
      return 0;
    }
    std::cerr << "usage: redis_peer serve list|table SOCKET | send list|table SOCKET OBJECTS\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "redis_peer: " << error.what() << "\n";
    return 1;
  }
}
