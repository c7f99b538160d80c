// The library's requests, and a result for each, over a gRPC bidirectional stream.
//
//     grpc_peer serve store|carry SOCKET      store: decodes, checks and stores each request;
//                                             carry: looks at none
//     grpc_peer send SOCKET OBJECTS BATCH     sends BATCH requests per message; prints nanoseconds
//                                             per request

#include <grpcpp/grpcpp.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "benchmarks/captured_requests.h"
#include "benchmarks/consumer.h"
#include "peer.grpc.pb.h"

namespace {

using Clock = std::chrono::steady_clock;

// For one client.
class Server final : public peer::Hal::Service {
 public:
  explicit Server(std::string_view work) : consumer_(work) {}

 private:
  grpc::Status Program(grpc::ServerContext* /*context*/,
                       grpc::ServerReaderWriter<peer::Results, peer::Requests>* stream) override {
    peer::Requests requests;
    peer::Results results;
    while (stream->Read(&requests)) {
      results.clear_results();
      for (const peer::Request& request : requests.requests()) {
        const auto operation = static_cast<reference::HalOperation>(request.operation());
        const auto outcome = consumer_.Answer(operation, request.payload());
        peer::Result* const result = results.add_results();
        result->set_code(static_cast<std::uint32_t>(outcome.code));
        result->set_id(request.id());
        result->set_secondary_id(outcome.secondary_id);
        result->set_hal_time(1);
      }
      if (!stream->Write(results)) break;
    }
    return grpc::Status::OK;
  }

  bench::Consumer consumer_;
};

int Serve(std::string_view work, const std::string& address) {
  Server service(work);
  grpc::ServerBuilder builder;
  builder.AddListeningPort(address, grpc::InsecureServerCredentials());
  builder.RegisterService(&service);
  const auto server = builder.BuildAndStart();
  if (server == nullptr) return 1;
  server->Wait();
  return 0;
}

std::vector<peer::Requests> Messages(std::size_t objects, std::size_t batch) {
  std::vector<peer::Requests> messages;
  std::size_t room = 0;
  for (const reference::HalRequest& request : bench::CaptureRequests(objects)) {
    if (room == 0) {
      messages.emplace_back();
      room = batch;
    }
    --room;
    peer::Request* const added = messages.back().add_requests();
    added->set_operation(static_cast<std::uint32_t>(request.operation));
    added->set_id(request.id);
    added->set_payload(request.payload);
  }
  return messages;
}

/// Counts the requests in flight and enforces the window.
class Outstanding {
 public:
  /// If the window is full, blocks until half of it has been answered.
  void Add(std::size_t requests) {
    std::unique_lock lock(mutex_);
    if (count_ + requests > bench::kWindow) {
      changed_.wait(lock, [this] { return count_ <= bench::kWindow / 2; });
    }
    count_ += requests;
  }
  void Remove(std::size_t results) {
    const std::lock_guard lock(mutex_);
    count_ -= results;
    if (count_ <= bench::kWindow / 2) changed_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t count_ = 0;
};

int Send(const std::string& address, std::size_t objects, std::size_t batch) {
  const std::vector<peer::Requests> messages = Messages(objects, batch);
  const auto stub =
      peer::Hal::NewStub(grpc::CreateChannel(address, grpc::InsecureChannelCredentials()));
  grpc::ClientContext context;
  context.set_wait_for_ready(true);
  const auto stream = stub->Program(&context);

  const Clock::time_point begin = Clock::now();
  Outstanding outstanding;
  std::size_t answered = 0;
  bool succeeded = true;
  std::thread reader([&] {
    peer::Results results;
    while (answered < objects && stream->Read(&results)) {
      const auto count = static_cast<std::size_t>(results.results_size());
      answered += count;
      for (const peer::Result& result : results.results()) succeeded &= result.code() == 0;
      outstanding.Remove(count);
    }
  });
  bool sent = true;
  for (const peer::Requests& message : messages) {
    outstanding.Add(static_cast<std::size_t>(message.requests_size()));
    sent = sent && stream->Write(message);
  }
  reader.join();
  const std::chrono::duration<double, std::nano> time = Clock::now() - begin;
  stream->WritesDone();
  if (!sent || !stream->Finish().ok() || answered != objects) {
    std::cerr << "grpc_peer: the stream broke\n";
    return 1;
  }
  if (!succeeded) {
    std::cerr << "grpc_peer: the server refused requests\n";
    return 1;
  }
  std::cout << "request " << time.count() / static_cast<double>(objects) << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string_view what = argc > 2 ? argv[1] : "";
    if (what == "serve" && argc == 4) return Serve(argv[2], "unix:" + std::string(argv[3]));
    if (what == "send" && argc == 5) {
      return Send("unix:" + std::string(argv[2]), std::strtoul(argv[3], nullptr, 10),
                  std::max(std::strtoul(argv[4], nullptr, 10), 1UL));
    }
    std::cerr << "usage: grpc_peer serve store|carry SOCKET | "
                 "grpc_peer send SOCKET OBJECTS BATCH\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "grpc_peer: " << error.what() << "\n";
    return 1;
  }
}
