#ifndef ZUSKUX_REFERENCE_MANAGER_MANAGER_H_
#define ZUSKUX_REFERENCE_MANAGER_MANAGER_H_

#include <array>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <utility>
#include <variant>
#include <vector>

#include "reference/hal/hal_connection.h"
#include "reference/manager/dest_database.h"
#include "reference/manager/notification_sink.h"
#include "reference/manager/request_queue.h"
#include "reference/site/site.h"

namespace reference {

/// What the manager reports to its host, on its own thread, when its work stands. The host may call
/// the manager in it. Each may be empty.
struct ManagerEvents {
  /// Nothing is due or outstanding any more. Once after each `Apply` and each reinstall, together
  /// when they overlap.
  std::function<void()> settled;
  /// A HAL server was found, which is given everything.
  std::function<void()> reinstalling;
  /// A reinstall of so many objects is done.
  std::function<void(std::size_t objects, std::chrono::steady_clock::duration time)> reinstalled;
  /// So many results have come so far.
  std::function<void(std::uint64_t results)> results;
};

/// How many wait, now and at most so far.
struct QueueDepth {
  std::size_t now = 0;
  std::size_t peak = 0;
};

struct ManagerQueues {
  /// Objects whose next request can be sent.
  QueueDepth due;
  /// Objects whose result is awaited.
  QueueDepth outstanding;
  /// What the HAL has reported and has not been looked at.
  QueueDepth inbox;
};

/// The destination manager: brings the HAL to what the site wants, whatever it held before, through
/// the library's adapters.
///
/// All of it happens on the thread that runs the io_context, which is the manager's thread: `Apply`
/// and the other operations are called there, and what the HAL reports on its own thread is only
/// put into an inbox, which is worked off there.
///
/// An object has at most one request outstanding; what changes meanwhile is sent when its result is
/// in. Requests are sent while the HAL has room. There is one manager in a process.
class Manager : private NotificationSink {
 public:
  /// `io` outlives the manager and is not run after its end.
  Manager(boost::asio::io_context* io, ManagerEvents events);
  /// The HAL is gone by then.
  ~Manager() override;

  /// Registers `hal` with the library and starts it. Nothing is sent before it reports its server
  /// found. Called once; not owned, ends before the manager.
  void Start(HalConnection* hal);

  /// Makes `site` what is wanted, and sends exactly what that changes. May be called before
  /// `Start`.
  void Apply(const Site& site);

  /// Whether the HAL has been brought to what the site wants, as far as it lets itself.
  bool settled() const;

  /// Objects with a request that is due or outstanding.
  std::size_t remaining() const { return remaining_; }

  const DestDatabase& database() const { return database_; }

  ManagerQueues queues();

 private:
  struct RoomNotice {};
  using Notification = std::variant<HalResult, HalKind, RoomNotice>;

  // On the HAL's thread.
  void OnResult(const HalResult& result) override;
  void OnReinstall(HalKind kind) override;
  void Put(const Notification& notification);

  // On the manager's thread.
  void Wake();
  void PostWork();
  void Work();
  void Handle(const HalResult& result);
  void Handle(HalKind reinstall);
  void Handle(RoomNotice /*room*/) {}

  void BeginReinstall();
  void MarkForReinstall(Object* object);
  void EndReinstall();

  void MarkDue(Object* object);
  void ClearDue(Object* object);
  void SetOutstanding(Object* object, std::optional<HalAction> action);
  void SendDue();
  bool MayGoNext(const Object& object) const;
  bool NeedsRequest(const Object& object) const;
  void Send(Object* object);
  void SendVrf(Object* object);

  void Succeeded(Object* object, HalAction action);
  void Failed(Object* object, HalAction action);
  void RetryOrFail(Object* object);
  void WaitForReferences(Object* object);
  void RetryDependentsOf(std::uint32_t id);
  void RetryAfterRemoval(HalKind kind);

  boost::asio::io_context* const io_;
  const ManagerEvents events_;
  HalConnection* hal_ = nullptr;

  std::mutex inbox_mutex_;
  // Guarded by `inbox_mutex_`.
  std::vector<Notification> inbox_;
  std::size_t inbox_peak_ = 0;

  DestDatabase database_;
  RequestQueue queue_;
  // Numeric ids of the VRFs that the site has.
  std::set<std::uint32_t> wanted_vrf_ids_;
  // A destination's id that is missing in the HAL, and an object that was refused for that.
  std::set<std::pair<std::uint32_t, ObjectKey>> waiting_;
  // Objects that were refused because their table was full, by the table.
  std::array<std::set<std::uint32_t>, kHalKinds> without_room_;

  std::size_t remaining_ = 0;
  std::size_t outstanding_installs_ = 0;
  std::size_t outstanding_removals_ = 0;
  std::size_t outstanding_peak_ = 0;
  std::size_t due_peak_ = 0;
  std::uint64_t results_ = 0;
  bool server_found_ = false;
  bool reinstalling_ = false;
  std::size_t reinstalled_objects_ = 0;
  std::chrono::steady_clock::time_point reinstall_start_;
  bool work_posted_ = false;
  // Whether `settled` is still to be reported.
  bool busy_ = false;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_MANAGER_H_
