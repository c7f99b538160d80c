#ifndef ZUSKUX_REFERENCE_HAL_HAL_CONNECTION_H_
#define ZUSKUX_REFERENCE_HAL_HAL_CONNECTION_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "reference/hal/hal_code.h"
#include "reference/hal/hal_object_state.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/hal_tables.h"
#include "reference/hal/kinds.h"
#include "reference/hal/latency.h"
#include "reference/hal/request_observer.h"

namespace reference {

/// The callbacks of a connection. The connection calls them on its own thread, one at a time, never
/// inside a request, and never after its destructor has returned. A callback may send requests and
/// call the connection, but must not destroy it. Callbacks must not throw.
struct HalReports {
  /// Receives the results. Not owned; must outlive the connection.
  HalCallback* results = nullptr;
  /// The HAL server was found, at start or after a restart. It holds nothing, or nothing that can
  /// be relied on. Every request sent to an earlier server has had its result. Requests sent after
  /// that server was lost go to the new one, after this report. May be empty.
  std::function<void()> server_found;
  /// There is room again after `HasRoom` returned false; reported once, no matter how often it did.
  /// May be empty.
  std::function<void()> room;
  /// The outcome of a VRF request, which has no result operation: the server's code, or the
  /// client's if no server answered in time; `ReportedReason` returns the server's reason
  /// meanwhile. Reported once per request, except for a request that a newer one for the same VRF
  /// superseded while there was no server. May be empty.
  std::function<void(const HalRequest& request, HalReturnCode code)> vrf_result = nullptr;
  /// The server is gone, and every request sent to it has had its result. A connection that finds
  /// the next server immediately does not report this. May be empty.
  std::function<void()> server_lost = nullptr;
  /// The server has carried out the end of a reinstall. `in_sync` is true if its tables match what
  /// it acknowledged. It is false if they do not and the connection will not ask for another
  /// reinstall. May be empty.
  std::function<void(bool in_sync)> reinstall_ended = nullptr;
  /// The state of an object has changed since its result, without a request for it. If a request
  /// for the object is in flight, ignore this: the result decides, and if the state still differs
  /// from it then, another report follows the result. May be empty.
  std::function<void(const HalObjectState& state)> object_state = nullptr;
  /// Answers `HalConnection::AskForDigests`. May be empty.
  std::function<void(const HalDigests& digests)> digests = nullptr;
};

struct HalConnectionCounters {
  /// All requests, including VRF requests and refused ones.
  std::uint64_t requests = 0;
  /// Results delivered, whatever their code; counted when the delivery begins.
  std::uint64_t results = 0;
  /// Late results of an earlier server generation, which were not delivered.
  std::uint64_t late_results = 0;
  /// Server-found reports; counted when the report begins.
  std::uint64_t servers_found = 0;
  /// Whether a server was found and has not been lost since.
  bool connected = false;
  /// Requests and reinstall marks waiting to be sent: now, and the maximum so far.
  std::size_t queued = 0;
  std::size_t queued_peak = 0;
  /// Requests and reinstall marks that are queued, in flight or being carried out, plus those that
  /// ended without the server and have not been reported yet.
  std::size_t unfinished = 0;
};

/// The server that a connection found last.
struct FoundServer {
  /// Foreign text; empty for none.
  std::string name;
  std::uint64_t generation = 0;
};

/// Reports first to a connection's observer, if there is one, and then to its host. Used by
/// connections, on the thread that reports.
class HalReporter {
 public:
  HalReporter() = default;
  HalReporter(HalReports reports, RequestObserver* observer)
      : reports_(std::move(reports)), observer_(observer) {}

  /// Calls the result operation or `vrf_result`; the observer does not see the latter.
  void Result(const HalRequest& request, HalReturnCode code, std::string_view reason = {}) const;
  void ServerFound() const;
  void ServerLost() const;
  void ReinstallEnded(bool in_sync) const;
  void ObjectStateChanged(const HalObjectState& state) const;
  void Digests(const HalDigests& digests) const;
  void Room() const;
  /// Reports to the observer only.
  void Event(std::string_view line) const;

 private:
  HalReports reports_;
  RequestObserver* observer_ = nullptr;
};

/// A HAL client of the reference system: the library's client interface, plus what its host needs
/// around the requests. Requests, and the calls below unless they say otherwise, come from the
/// manager's thread only.
///
/// Every request of an operation that has a result ends in exactly one result, even if the request
/// is refused, the server goes away or does not answer.
class HalConnection : public HalClientBase {
 public:
  /// Makes `observer` see all traffic on the connection. Call before `Start` and before the first
  /// request. Not owned; must outlive the connection.
  void Observe(RequestObserver* observer) { observer_ = observer; }

  /// Starts reporting, first that the server was found. Call once. Earlier requests wait.
  virtual void Start(HalReports reports) = 0;

  /// Whether a request would be accepted now. After `false`, `HalReports::room` follows.
  virtual bool HasRoom() = 0;

  // The two marks below keep their place among the requests. They are never refused, and are lost
  // with the server that they were sent to.

  /// Opens a reinstall: until `EndReinstall`, an install replaces what the server holds.
  void BeginReinstall();

  /// Closes a reinstall: the server removes everything that no install or replace since
  /// `BeginReinstall` named. `HalReports::reinstall_ended` follows, or another server-found report.
  void EndReinstall();

  /// Asks the server for the digests of its tables, as they are after all requests so far.
  /// `HalReports::digests` follows, unless the server is lost, or a reinstall is open or its end
  /// not answered. A connection to a HAL in the same process has nothing to compare and does not
  /// answer.
  virtual void AskForDigests() {}

  // Callable on any thread.
  virtual HalConnectionCounters counters() const = 0;
  virtual HalLatencies latencies() const = 0;
  virtual FoundServer server() const { return {}; }

  /// Succeeds without asking the server; has no result.
  ReturnCode InitEncapsulationModule() final;

 protected:
  /// Accepts or refuses the request: returns success, or the code that its result will carry.
  /// Either way the result is reported later, never inside this call. May move the request's
  /// payload; if not, the next request uses its memory again.
  virtual HalReturnCode Submit(HalRequest* request) = 0;
  virtual void SubmitBeginReinstall() = 0;
  virtual void SubmitEndReinstall() = 0;

  /// Null if there is none.
  RequestObserver* observer() const { return observer_; }

 private:
  // Copies the request and submits it.
  ReturnCode OnRequest(HalOperation operation, AppMessage* wrapper) final;

  RequestObserver* observer_ = nullptr;
  // The last request. A connection that copies payloads allocates nothing for the next one.
  HalRequest request_;
};

/// The code of the result being reported on this thread; success outside of a report. The
/// controllers' notifications do not carry the code, so their handlers, which run inside the
/// report, read it here.
HalReturnCode ReportedCode();

/// The HAL's reason for the refusal being reported on this thread, in one line that is safe to
/// print; empty if it gives none, and outside of a report. Valid during the report.
std::string_view ReportedReason();

/// Makes `code` and `reason` the reported ones on this thread for its lifetime, then restores the
/// previous ones. Wraps each call of a result operation, as in `ReportResult`. `reason` must
/// outlive it.
class ScopedReport {
 public:
  explicit ScopedReport(HalReturnCode code, std::string_view reason = {});
  ScopedReport(const ScopedReport&) = delete;
  ScopedReport& operator=(const ScopedReport&) = delete;
  ~ScopedReport();

 private:
  HalReturnCode previous_code_;
  std::string_view previous_reason_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_HAL_CONNECTION_H_
