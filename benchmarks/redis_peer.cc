// The library's requests, and a result for each, through a Redis server on a Unix socket.
//
//     redis_peer serve list|table store|carry SOCKET   takes requests and answers them, until
//     killed redis_peer send list|table SOCKET OBJECTS        prints nanoseconds per request
//
// list: a list of requests and one of results. table: a hash for each object and a set of the
// pending ones, and the same for the answers; pushing a mark onto a list wakes the other side.
// Commands are pipelined.
//
// store: the consumer decodes, checks and stores each request. carry: it looks at none.

#include <hiredis/hiredis.h>

#include <algorithm>
#include <array>
#include <boost/endian/conversion.hpp>
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
#include "benchmarks/consumer.h"

namespace {

using Clock = std::chrono::steady_clock;
using Reply = std::unique_ptr<redisReply, void (*)(void*)>;

constexpr char kTaken[] = "4096";

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

void CheckSuccess(bool success) {
  if (!success) throw std::runtime_error("the consumer refused requests");
}

class Transport {
 public:
  explicit Transport(const char* socket) : redis_(socket) {}
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  virtual ~Transport() = default;

  /// Prepares to send these requests, which must outlive the transport.
  virtual void Prepare(const std::vector<reference::HalRequest>& requests) = 0;
  /// Sends the prepared requests `begin` to `end`.
  virtual void Send(std::size_t begin, std::size_t end) = 0;
  /// Blocks until results arrive; returns how many did. Throws if one is no success.
  virtual std::size_t TakeResults() = 0;
  /// Blocks until requests arrive and answers them.
  virtual void Answer(bench::Consumer* consumer) = 0;

 protected:
  Redis redis_;
};

// A request is its operation, in one byte, and the payload.
class ListTransport : public Transport {
 public:
  using Transport::Transport;

  void Prepare(const std::vector<reference::HalRequest>& requests) override {
    for (const reference::HalRequest& request : requests) {
      ready_.push_back(static_cast<char>(request.operation) + request.payload);
    }
  }
  void Send(std::size_t begin, std::size_t end) override {
    for (; begin < end; ++begin) redis_.Append({"RPUSH", "requests", ready_[begin]});
    redis_.ReadAll();
  }
  std::size_t TakeResults() override {
    // The code in four bytes.
    static const std::string kSuccess(sizeof(std::uint32_t), '\0');
    const std::vector<std::string> results = TakeList(&redis_, "results");
    for (const std::string& result : results) {
      CheckSuccess(result.compare(0, kSuccess.size(), kSuccess) == 0);
    }
    return results.size();
  }
  void Answer(bench::Consumer* consumer) override {
    for (const std::string& request : TakeList(&redis_, "requests")) {
      const auto outcome = consumer->Answer(static_cast<reference::HalOperation>(request.front()),
                                            std::string_view{request}.substr(1));
      using boost::endian::native_to_big;
      const Result result = {native_to_big(static_cast<std::uint32_t>(outcome.code)),
                             native_to_big(outcome.id), native_to_big(outcome.secondary_id), 0};
      redis_.Append(
          {"RPUSH", "results", {reinterpret_cast<const char*>(result.data()), sizeof result}});
    }
    redis_.ReadAll();
  }

 private:
  // Code, two ids and a duration, as on the HAL's own socket.
  using Result = std::array<std::uint32_t, 4>;

  std::vector<std::string> ready_;
};

// An object's key is the operation and the id; a result is the code and the key.
class TableTransport : public Transport {
 public:
  using Transport::Transport;

  void Prepare(const std::vector<reference::HalRequest>& requests) override {
    requests_ = &requests;
    for (const reference::HalRequest& request : requests) {
      keys_.push_back(std::to_string(static_cast<int>(request.operation)) + ':' +
                      std::to_string(request.id));
    }
  }
  void Send(std::size_t begin, std::size_t end) override {
    for (; begin < end; ++begin) {
      redis_.Append({"HSET", "wanted:" + keys_[begin], "payload", (*requests_)[begin].payload});
      redis_.Append({"SADD", "waiting", keys_[begin]});
    }
    redis_.Append({"RPUSH", "sent", "1"});
    redis_.ReadAll();
  }
  std::size_t TakeResults() override {
    const std::vector<std::string> results = TakeSet(&redis_, "answered", "results");
    for (const std::string& result : results) CheckSuccess(result.compare(0, 2, "0:") == 0);
    return results.size();
  }
  void Answer(bench::Consumer* consumer) override {
    const std::vector<std::string> keys = TakeSet(&redis_, "sent", "waiting");
    for (const std::string& key : keys) redis_.Append({"HGETALL", "wanted:" + key});
    for (const std::string& key : keys) waiting_.push_back({key, redis_.Read()});
    // A set has no order: what an object refers to may come after it.
    while (AnswerSome(consumer)) {
    }
    redis_.Append({"RPUSH", "answered", "1"});
    redis_.ReadAll();
  }

 private:
  struct Waiting {
    std::string key;
    Reply object;
  };

  // Returns whether another attempt may succeed for what still waits.
  bool AnswerSome(bench::Consumer* consumer) {
    const std::size_t before = waiting_.size();
    std::vector<Waiting> missing;
    for (Waiting& waiting : waiting_) {
      const std::string_view payload = TextOf(*waiting.object->element[1]);
      const auto operation = static_cast<reference::HalOperation>(std::stoi(waiting.key));
      const reference::HalReturnCode code = consumer->Answer(operation, payload).code;
      if (code == reference::kHalMissingReference) {
        missing.push_back(std::move(waiting));
        continue;
      }
      redis_.Append({"HSET", "state:" + waiting.key, "payload", payload});
      redis_.Append({"SADD", "results",
                     std::to_string(static_cast<std::uint32_t>(code)) + ':' + waiting.key});
    }
    waiting_ = std::move(missing);
    return !waiting_.empty() && waiting_.size() < before;
  }

  const std::vector<reference::HalRequest>* requests_ = nullptr;
  std::vector<std::string> keys_;
  // The consumer's: taken and not answered.
  std::vector<Waiting> waiting_;
};

std::unique_ptr<Transport> MakeTransport(std::string_view name, const char* socket) {
  if (name == "list") return std::make_unique<ListTransport>(socket);
  if (name == "table") return std::make_unique<TableTransport>(socket);
  throw std::runtime_error("the transport must be list or table");
}

void Send(Transport* transport, std::size_t objects) {
  const std::vector<reference::HalRequest> requests = bench::CaptureRequests(objects);
  transport->Prepare(requests);
  const Clock::time_point begin = Clock::now();
  std::size_t sent = 0;
  std::size_t answered = 0;
  while (answered < requests.size()) {
    const std::size_t outstanding = sent - answered;
    if (sent < requests.size() && outstanding <= bench::kWindow / 2) {
      const std::size_t end = std::min(requests.size(), sent + bench::kWindow - outstanding);
      transport->Send(sent, end);
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
    if (what == "serve" && argc == 5) {
      bench::Consumer consumer(argv[3]);
      const auto transport = MakeTransport(argv[2], argv[4]);
      while (true) transport->Answer(&consumer);
    }
    if (what == "send" && argc == 5) {
      Send(MakeTransport(argv[2], argv[3]).get(), std::strtoul(argv[4], nullptr, 10));
      return 0;
    }
    std::cerr << "usage: redis_peer serve list|table store|carry SOCKET | "
                 "send list|table SOCKET OBJECTS\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "redis_peer: " << error.what() << "\n";
    return 1;
  }
}
