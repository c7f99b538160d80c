#ifndef ZUSKUX_REFERENCE_MANAGER_ENGINE_MANAGER_H_
#define ZUSKUX_REFERENCE_MANAGER_ENGINE_MANAGER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "reference/manager/engine/audit.h"
#include "reference/manager/engine/dest_database.h"
#include "reference/manager/engine/notification_sink.h"
#include "reference/manager/engine/request_queue.h"
#include "reference/manager/engine/waitlist.h"
#include "reference/site/site.h"
#include "reference/support/mutex.h"

namespace boost::asio {
class io_context;
}  // namespace boost::asio

namespace reference {

/// What the manager reports to its host, on the manager's thread, between its own steps. The
/// callbacks may call the manager. Each may be empty.
struct ManagerEvents {
  /// The manager has finished; see `Manager::finished`. Called once after each `Apply` and each
  /// reinstall, or once for several that overlap.
  std::function<void()> finished;
  /// A HAL server was found; everything will be sent to it.
  std::function<void()> reinstalling;
  /// A reinstall of `objects` objects is complete.
  std::function<void(std::size_t objects, std::chrono::steady_clock::duration time)> reinstalled;
  /// The total number of results so far.
  std::function<void(std::uint64_t results)> results;
  /// The HAL server was found or lost.
  std::function<void(bool connected)> connection = nullptr;
  /// A reinstall has ended, with or without both sides in agreement.
  std::function<void(bool in_sync)> reinstall_ended = nullptr;
  /// The object's standing has changed. Called inside a step: it must not call the manager.
  std::function<void(const Object& object)> standing_changed = nullptr;
  /// An audit has found `differences`, or none if empty. `reinstalls` is whether the manager
  /// reinstalls everything now.
  std::function<void(const std::string& differences, bool reinstalls)> audited = nullptr;
};

/// What has happened since the start.
struct ManagerCounters {
  /// The outcomes of requests by code, those that the HAL never saw included.
  std::map<HalReturnCode, std::uint64_t> results;
  /// Requests sent again after an outcome that was no verdict on the object.
  std::uint64_t retries = 0;
  std::uint64_t reinstalls = 0;
};

/// A queue's length: now, and the maximum so far.
struct QueueDepth {
  std::size_t now = 0;
  std::size_t peak = 0;
};

struct ManagerQueues {
  /// Objects whose next request can be sent.
  QueueDepth due;
  /// Objects with a request in flight.
  QueueDepth outstanding;
  /// Reports from the HAL that are not handled yet.
  QueueDepth inbox;
};

/// The destination manager: makes the HAL hold what the site wants, whatever it held before,
/// through the library's adapters.
///
/// Everything runs on the manager's thread, the one that runs the io_context: call `Apply` and the
/// other operations there. Reports that the HAL makes on its own thread only go into an inbox,
/// which the manager's thread drains.
///
/// An object has at most one request in flight; changes in the meantime are sent after its result.
/// The manager sends requests while the HAL has room. There is one manager per process.
class Manager : private NotificationSink {
 public:
  /// `io` must outlive the manager and must not run after the manager's end.
  Manager(boost::asio::io_context* io, ManagerEvents events);
  /// Destroy the HAL first.
  ~Manager() override;

  /// Registers `hal` with the library and starts it. Sends nothing before `hal` reports that it
  /// found its server. Call once. `hal` is not owned and must be destroyed before the manager.
  void Start(HalConnection* hal);

  /// Makes the site that was compared with `database` the wanted state, and sends exactly the
  /// changes. May be called before `Start`. Takes time for the changes and for the interfaces, not
  /// for the other objects.
  void Apply(SiteDifference difference);
  void Apply(Site site) { Apply(database_.Compare(std::move(site))); }

  /// Installs everything again, as if the server had just been found. Needs a connection.
  void Resync();

  /// Compares what the HAL has acknowledged with the digests of its tables, unless there is work to
  /// do or the HAL is not in sync. A difference makes the HAL not in sync and, as often as
  /// `ReinstallBackoff` allows, leads to a reinstall.
  void Audit();

  /// Number of completed audits, and of those that found a difference.
  std::uint64_t audits() const { return audits_; }
  std::uint64_t audits_with_differences() const { return audits_with_differences_; }

  /// Whether nothing is left to do: the server was found, every request has had its outcome, and
  /// the last reinstall has ended. Some objects may have failed.
  bool finished() const;

  /// Whether the server was found and, after the last reinstall, confirmed that it holds what it
  /// acknowledged.
  bool in_sync() const { return server_found_ && in_sync_ == true; }

  /// Whether the HAL holds what the site wants: finished, in sync, and no object has failed.
  bool settled() const;

  /// Whether there is a server to send to.
  bool connected() const { return server_found_; }

  /// Number of requests that the HAL has refused so far, not counting removals of entries that were
  /// already gone.
  std::uint64_t refused() const { return refused_; }

  /// Number of objects with a request that is due or outstanding.
  std::size_t remaining() const { return remaining_; }

  /// Number of objects that the reinstall sends, the one that runs or the last one.
  std::size_t reinstalled_objects() const { return reinstalled_objects_; }

  const DestDatabase& database() const { return database_; }

  ManagerQueues queues();

  const ManagerCounters& counters() const { return counters_; }

 private:
  /// The outcome of a VRF request, for which the library has no notification.
  struct VrfResult {
    std::uint32_t number = 0;
    HalAction action = HalAction::kInstall;
    HalReturnCode code = kHalSuccess;
    std::string reason;
  };
  /// A server was found. A notice for each kind follows, then `EverythingAskedForNotice`.
  struct ServerFoundNotice {};
  /// Install all objects of the kind again.
  struct ReinstallNotice {
    HalKind kind{};
  };
  struct EverythingAskedForNotice {};
  struct ReinstallEndedNotice {
    bool in_sync = false;
  };
  struct ServerLostNotice {};
  struct RoomNotice {};
  using Notification = std::variant<HalResult, VrfResult, ServerFoundNotice, ReinstallNotice,
                                    EverythingAskedForNotice, ReinstallEndedNotice,
                                    ServerLostNotice, RoomNotice, HalObjectState, HalDigests>;

  // On the HAL's thread.
  void OnResult(const HalResult& result) override;
  void OnReinstall(HalKind kind) override;
  void Put(Notification notification);

  // On the manager's thread.
  void Wake();
  void PostWork();
  void Work();
  void Handle(const HalResult& result);
  void Handle(const VrfResult& result);
  void Handle(const ServerFoundNotice& notice);
  void Handle(const ReinstallNotice& notice);
  void Handle(const EverythingAskedForNotice& notice);
  void Handle(const ReinstallEndedNotice& notice);
  void Handle(const ServerLostNotice& notice);
  void Handle(const RoomNotice& /*notice*/) {}
  void Handle(const HalObjectState& state);
  void Handle(const HalDigests& digests);

  void ContinueAudit();
  void AbandonAudit();
  // A difference that an audit has found does not stop the next one.
  bool MayAudit() const { return finished() && (in_sync() || differs_); }
  void BeginReinstall();
  void MarkForReinstall(Object* object);
  void EndReinstall();
  void LoseServer();

  void MarkDue(Object* object);
  void ClearDue(Object* object);
  void SetOutstanding(Object* object, std::optional<HalAction> action);
  void SendDue();
  bool MayGoNext(const Object& object) const;
  void Send(Object* object, HalAction action);

  void EndRequest(Object* object, HalAction action, bool success, HalReturnCode code,
                  const std::string& reason);
  void Succeeded(Object* object, HalAction action);
  void Failed(Object* object, HalAction action);
  void RetryOrFail(Object* object);
  void WaitForReferences(Object* object);
  bool AwaitsReferences(const Object& object);
  void RetryDependentsOf(std::uint32_t id);
  bool RetryForRoom(HalKind kind);

  boost::asio::io_context* const io_;
  const ManagerEvents events_;
  HalConnection* hal_ = nullptr;

  Mutex inbox_mutex_;
  std::vector<Notification> inbox_ ZUSKUX_GUARDED_BY(inbox_mutex_);
  std::size_t inbox_peak_ ZUSKUX_GUARDED_BY(inbox_mutex_) = 0;
  // Empty except in `Work`. Kept for its memory, which the inbox uses next.
  std::vector<Notification> taken_;

  DestDatabase database_;
  RequestQueue queue_;
  Waitlist waitlist_;

  std::size_t remaining_ = 0;
  std::size_t outstanding_installs_ = 0;
  std::size_t outstanding_removals_ = 0;
  std::size_t outstanding_peak_ = 0;
  std::size_t due_peak_ = 0;
  std::uint64_t results_ = 0;
  std::uint64_t refused_ = 0;
  ManagerCounters counters_;
  bool server_found_ = false;
  bool reinstalling_ = false;
  // Result of the last reinstall; nothing until one has ended.
  std::optional<bool> in_sync_;
  std::size_t reinstalled_objects_ = 0;
  std::chrono::steady_clock::time_point reinstall_start_;
  // The progress of an audit.
  enum class AuditStep { kNone, kComputing, kAsking };
  AuditStep audit_step_ = AuditStep::kNone;
  AcknowledgedDigests acknowledged_;
  ReinstallBackoff backoff_;
  // Whether the last audit has found a difference and no reinstall has followed.
  bool differs_ = false;
  std::uint64_t audits_ = 0;
  std::uint64_t audits_with_differences_ = 0;
  bool work_posted_ = false;
  // Whether `finished` is still to be reported.
  bool busy_ = false;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_ENGINE_MANAGER_H_
