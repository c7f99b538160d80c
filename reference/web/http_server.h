#ifndef ZUSKUX_REFERENCE_WEB_HTTP_SERVER_H_
#define ZUSKUX_REFERENCE_WEB_HTTP_SERVER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "reference/web/http_address.h"
#include "reference/web/http_message.h"

namespace reference {

class HttpServer;

/// What a program serves. Used on the server's thread.
class HttpPages {
 public:
  HttpPages() = default;
  HttpPages(const HttpPages&) = delete;
  HttpPages& operator=(const HttpPages&) = delete;
  virtual ~HttpPages() = default;

  /// The server runs; called first.
  virtual void Start(HttpServer* server) = 0;

  /// May throw `HttpError`.
  virtual HttpAnswer Get(const HttpRequest& request) = 0;

  /// The event that says that a client missed as many events.
  virtual std::string MissedText(std::uint64_t events) = 0;
};

struct HttpServerOptions {
  HttpAddress address;
  /// Runs the function on the program's own thread, after what that thread is doing. Called on the
  /// server's thread.
  std::function<void(std::function<void()>)> post_to_program;

  std::size_t max_connections = 256;
  /// How many batches of events may wait for a client to read; it misses those beyond.
  std::size_t max_batches = 16;
  /// How many queries may wait; requests with the same target share one.
  std::size_t max_queries = 64;
  /// How long a client may take to send a request and to read an answer or an event, how long a
  /// connection may be idle, and how long a query may take.
  std::chrono::milliseconds request_time = std::chrono::seconds(10);
  std::chrono::milliseconds write_time = std::chrono::seconds(10);
  std::chrono::milliseconds idle_time = std::chrono::seconds(30);
  std::chrono::milliseconds query_time = std::chrono::seconds(30);
};

/// Events, written once for all clients that follow.
struct EventBatch {
  std::shared_ptr<const std::string> text;
  std::uint64_t events = 0;
};

/// Serves pages over HTTP, read-only, on a thread of its own. A slow or hostile client costs the
/// program's thread nothing: connections, requests, times and memory are bounded, and the program's
/// thread works on one step of one query at a time, with pauses.
///
/// Owned by the program. Destroy it when the program's thread no longer runs what
/// `post_to_program` was given.
class HttpServer {
 public:
  /// Listens and starts the thread. `pages` is not owned and must outlive the server. Throws
  /// `boost::system::system_error`, with a text for the operator, if it cannot listen.
  HttpServer(HttpServerOptions options, HttpPages* pages);
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;
  /// Ends all connections and the thread.
  ~HttpServer();

  /// With the port that it got.
  const HttpAddress& address() const;

  /// Runs the function on the server's thread. Any thread may call it.
  void Post(std::function<void()> function);

  static constexpr std::size_t kMaxHeader = 8192;

  // The rest is for the pages, on the server's thread.

  /// Runs the function later.
  void After(std::chrono::milliseconds time, std::function<void()> function);
  /// Calls `answered` with the query's answer.
  void Ask(std::shared_ptr<Query> query, std::function<void(const HttpResponse&)> answered);
  /// Sends the batch to all clients that follow the events. One that has too many to read misses
  /// it, and learns how many it missed.
  void Broadcast(const EventBatch& batch);
  /// How many clients follow the events.
  std::size_t followers() const;

 private:
  class Impl;
  const std::unique_ptr<Impl> impl_;
};

/// Reads the head of a request, as a connection does: without its body, and for a server on a
/// machine of that name. Throws `HttpError` for a request that the server refuses, also if it is
/// not complete.
HttpRequest ReadHttpRequest(const std::string& head, const std::string& machine);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WEB_HTTP_SERVER_H_
