#ifndef ZUSKUX_REFERENCE_WEB_HTTP_MESSAGE_H_
#define ZUSKUX_REFERENCE_WEB_HTTP_MESSAGE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace reference {

/// A request to read something, as the pages of a program see it. All texts are valid UTF-8.
struct HttpRequest {
  /// The decoded parts of the path; empty for "/".
  std::vector<std::string> path;
  std::map<std::string, std::string> parameters;
  /// What a client of events received last; may be empty.
  std::string last_event_id;
};

struct HttpResponse {
  unsigned status = 200;
  std::string type;
  std::string body;
};

/// An answer other than 200. Its text names the place and the remedy.
class HttpError : public std::runtime_error {
 public:
  HttpError(unsigned status, const std::string& text) : std::runtime_error(text), status_(status) {}
  unsigned status() const { return status_; }

 private:
  unsigned status_;
};

/// The path and the parameters of a request's target, such as "/api/objects?kind=vlan". Throws
/// `HttpError`.
HttpRequest ParseTarget(std::string_view target);

/// Reads the parameters of a request, each at most once. Throws `HttpError` for a wrong value.
class Parameters {
 public:
  explicit Parameters(const HttpRequest& request) : left_(request.parameters) {}

  /// Empty if absent. At most `max_bytes` bytes.
  std::string Text(const std::string& name, std::size_t max_bytes);
  std::uint64_t Number(const std::string& name, std::uint64_t absent, std::uint64_t first,
                       std::uint64_t last);
  /// The parts between commas; none if absent.
  std::vector<std::string> List(const std::string& name);
  /// Throws if the request has a parameter that was not read.
  void End() const;

 private:
  std::map<std::string, std::string> left_;
};

/// An answer whose foreign texts can be shown anywhere: every string in it is made `Printable`.
HttpResponse JsonResponse(nlohmann::ordered_json json);
/// {"error":"TEXT"}
HttpResponse ErrorResponse(unsigned status, const std::string& text);

class Query;
/// What a query leads to: the answer, or another query.
using QueryResult = std::variant<HttpResponse, std::shared_ptr<Query>>;

/// A question that only the program's own thread can answer. It is asked in steps, so that the
/// program's work goes on in between.
class Query {
 public:
  Query() = default;
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  virtual ~Query() = default;

  /// On the program's thread; takes well below a millisecond. Returns whether it was the last step.
  /// Must not throw.
  virtual bool Step() = 0;

  /// After the last step, on a thread of the HTTP server: makes the answer from what the steps
  /// collected. May throw `HttpError`.
  virtual QueryResult Finish() = 0;

  /// Whether `Finish` may take long, because it runs another program.
  virtual bool finish_is_slow() const { return false; }
};

/// The answer is a stream of events; see `HttpServer::Broadcast`.
struct EventStream {
  /// What the stream begins with.
  std::string first;
};

using HttpAnswer = std::variant<HttpResponse, std::shared_ptr<Query>, EventStream>;

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_WEB_HTTP_MESSAGE_H_
