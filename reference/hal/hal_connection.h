#ifndef ZUSKUX_REFERENCE_HAL_HAL_CONNECTION_H_
#define ZUSKUX_REFERENCE_HAL_HAL_CONNECTION_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

#include "reference/hal/hal_code.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/kinds.h"
#include "reference/hal/latency.h"
#include "reference/hal/request_observer.h"

namespace reference {

/// Where a connection reports to. Everything here is called on the connection's own thread, one
/// call at a time, never inside a request, and not after the connection's destructor returned.
/// Requests and the other calls of the connection are allowed inside, its destruction is not.
/// Nothing here throws.
struct HalReports {
  /// Takes the results. Not owned; outlives the connection.
  HalCallback* results = nullptr;
  /// The HAL server was found, at the start or after a restart: it holds nothing, or nothing that
  /// can be relied on. Every request sent to an earlier server has had its result; one that was
  /// sent after that server was lost goes to the one just found, behind this report. May be empty.
  std::function<void()> server_found;
  /// There is room again after `HasRoom` returned false. Once, however often it did. May be empty.
  std::function<void()> room;
  /// The outcome of a VRF request, which has no result operation: the server's code, or the
  /// client's where the request did not reach a server. Once for each request, except for one that
  /// a newer request for the same VRF superseded while there was no server. May be empty.
  std::function<void(const HalRequest& request, HalReturnCode code)> vrf_result = nullptr;
  /// The server that was found is gone, and what was sent to it has had its result. Not reported by
  /// a connection that finds the next server at once. May be empty.
  std::function<void()> server_lost = nullptr;
  /// The server has carried out the end of a reinstall, and its tables are what it acknowledged, or
  /// are not and the connection will not ask for another reinstall. May be empty.
  std::function<void(bool in_sync)> reinstall_ended = nullptr;
};

struct HalConnectionCounters {
  /// All requests, VRF and refused ones included.
  std::uint64_t requests = 0;
  /// Results delivered, whatever their code; counted when their delivery begins.
  std::uint64_t results = 0;
  /// Results of an earlier server generation that arrived late and were not delivered.
  std::uint64_t late_results = 0;
  /// Reports that the server was found; counted when they begin.
  std::uint64_t servers_found = 0;
  /// Whether there is a server: one was found and has not been lost since.
  bool connected = false;
  /// Requests and reinstall marks that wait to be sent, now and at most so far.
  std::size_t queued = 0;
  std::size_t queued_peak = 0;
  /// Requests and reinstall marks that wait, are on their way or are being carried out; also what
  /// ended without the server and has not been reported yet.
  std::size_t unfinished = 0;
};

/// Reports to a connection's observer, null for none, and then to its host. For connections, on the
/// thread that reports.
class HalReporter {
 public:
  HalReporter() = default;
  HalReporter(HalReports reports, RequestObserver* observer)
      : reports_(std::move(reports)), observer_(observer) {}

  /// Calls the result operation, or `vrf_result`, of which the observer hears nothing.
  void Result(const HalRequest& request, HalReturnCode code) const;
  void ServerFound() const;
  void ServerLost() const;
  void ReinstallEnded(bool in_sync) const;
  void Room() const;
  /// For the observer alone.
  void Event(std::string_view line) const;

 private:
  HalReports reports_;
  RequestObserver* observer_ = nullptr;
};

/// A HAL client of the reference system: what every client of the library is, plus what its host
/// needs around the requests. Requests come on the manager's thread only, and so do the calls below
/// unless they say otherwise.
///
/// Every request of an operation that has a result ends in exactly one, also when it was refused,
/// the server went away or did not answer.
class HalConnection : public HalClientBase {
 public:
  /// Has `observer` told all that goes over the connection. Before `Start` and before the first
  /// request. Not owned, outlives the connection.
  void Observe(RequestObserver* observer) { observer_ = observer; }

  /// Starts reporting; the first report is that the server was found. Called once. Requests may
  /// come earlier; they wait.
  virtual void Start(HalReports reports) = 0;

  /// Whether a request would be taken now. After `false`, `HalReports::room` follows.
  virtual bool HasRoom() = 0;

  // The two below keep their place among the requests. They are never refused, and are lost with
  // the server that they were sent to.

  /// Opens a reinstall: until `EndReinstall`, an install replaces what the server holds.
  void BeginReinstall();

  /// Closes a reinstall: the server removes what no install or replace since `BeginReinstall`
  /// named. `HalReports::reinstall_ended` follows, or another report that the server was found.
  void EndReinstall();

  // Both callable on any thread.
  virtual HalConnectionCounters counters() const = 0;
  virtual HalLatencies latencies() const = 0;

  /// Succeeds without asking the server, and has no result.
  ReturnCode InitEncapsulationModule() final;

 protected:
  /// Takes the request, or refuses it: success, or the code that its result will carry. Either way
  /// the result is reported later, never inside this call.
  virtual HalReturnCode Submit(HalRequest request) = 0;
  virtual void SubmitBeginReinstall() = 0;
  virtual void SubmitEndReinstall() = 0;

  /// Null for none.
  RequestObserver* observer() const { return observer_; }

 private:
  // Copies the request and submits it.
  ReturnCode OnRequest(HalOperation operation, AppMessage* wrapper) final;

  RequestObserver* observer_ = nullptr;
};

/// The code of the result that is being reported on this thread, success outside of a report. The
/// notifications of the controllers do not carry it; their handlers, which run inside the report,
/// read it here.
HalReturnCode ReportedCode();

/// Makes `code` the reported one on this thread for its lifetime, then again the one before. Around
/// each call of a result operation, as `ReportResult` does.
class ScopedReportedCode {
 public:
  explicit ScopedReportedCode(HalReturnCode code);
  ScopedReportedCode(const ScopedReportedCode&) = delete;
  ScopedReportedCode& operator=(const ScopedReportedCode&) = delete;
  ~ScopedReportedCode();

 private:
  HalReturnCode previous_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_CONNECTION_H_
