#include "reference/manager/engine/manager.h"

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <optional>
#include <utility>

#include "reference/manager/engine/adapters.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"

namespace reference {
namespace {

// How many requests are sent before the manager handles results again.
constexpr int kSendBatch = 1024;
// How many entries an audit reads before the manager does anything else.
constexpr std::size_t kAuditBatch = 1024;

// How often to send a request that ends without a verdict on the object.
constexpr std::uint8_t kMaxAttempts = 3;

// The next request for the object; nothing if it need not be removed.
std::optional<HalAction> NextAction(const Object& object) {
  if (object.wanted) {
    const bool install_replaces =
        object.key.kind == HalKind::kVrf || object.key.kind == HalKind::kEcmp;
    const bool replace =
        object.presence == Presence::kPresent && !object.reinstall && !install_replaces;
    return replace ? HalAction::kReplace : HalAction::kInstall;
  }
  if (object.presence == Presence::kAbsent) return std::nullopt;
  return HalAction::kDestroy;
}

// The state of an object that the HAL has accepted.
ObjectState EndState(const Object& object) {
  return object.key.kind == HalKind::kVrf ? ObjectState::kSent : ObjectState::kInstalled;
}

}  // namespace

Manager::Manager(boost::asio::io_context* io, ManagerEvents events)
    : io_(io), events_(std::move(events)) {
  database_.Watch(events_.standing_changed);
  SetNotificationSink(this);
}

Manager::~Manager() {
  SetNotificationSink(nullptr);
  dest_mng::Hai::GetInstance()->set_client(nullptr);
}

void Manager::Start(HalConnection* hal) {
  hal_ = hal;
  dest_mng::Hai* const hai = dest_mng::Hai::GetInstance();
  hai->set_client(hal);
  hal->InitEncapsulationModule();
  HalReports reports;
  reports.results = hai->hal_encap_callback();
  reports.server_found = [this] {
    Put(ServerFoundNotice());
    // Requests the kinds one after the other.
    dest_mng::HaiDestClientCallback::HalServerFoundCallback(nullptr);
    Put(EverythingAskedForNotice());
  };
  reports.room = [this] { Put(RoomNotice()); };
  reports.vrf_result = [this](const HalRequest& request, HalReturnCode code) {
    Put(VrfResult{request.id, ActionOf(request.operation), code, std::string(ReportedReason())});
  };
  reports.server_lost = [this] { Put(ServerLostNotice()); };
  reports.reinstall_ended = [this](bool in_sync) { Put(ReinstallEndedNotice{in_sync}); };
  reports.object_state = [this](const HalObjectState& state) { Put(state); };
  reports.digests = [this](const HalDigests& digests) { Put(digests); };
  hal->Start(std::move(reports));
}

void Manager::Apply(SiteDifference difference) {
  AbandonAudit();
  SetInterfaces(difference.changed.interfaces);
  const DestDatabase::Changes changes = database_.Replace(std::move(difference));
  for (Object* const object : changes.changed) {
    object->attempts = 0;
    MarkDue(object);
  }
  for (Object* const object : changes.dropped) {
    object->attempts = 0;
    MarkDue(object);
  }
  Wake();
}

void Manager::Resync() {
  BeginReinstall();
  for (const HalKind kind : kAllHalKinds) {
    database_.ForEachEntry(kind, [this](Object* entry) { MarkForReinstall(entry); });
  }
  server_found_ = true;
  Wake();
}

void Manager::Audit() {
  if (audit_step_ == AuditStep::kComputing || !MayAudit()) return;
  audit_step_ = AuditStep::kComputing;
  ContinueAudit();
}

void Manager::ContinueAudit() {
  if (audit_step_ != AuditStep::kComputing) return;
  if (!acknowledged_.Continue(&database_, kAuditBatch)) {
    boost::asio::post(*io_, [this] { ContinueAudit(); });
    return;
  }
  audit_step_ = AuditStep::kAsking;
  hal_->AskForDigests();
}

// What is being read or asked for may no longer hold when it arrives.
void Manager::AbandonAudit() { audit_step_ = AuditStep::kNone; }

void Manager::Handle(const HalDigests& digests) {
  if (std::exchange(audit_step_, AuditStep::kNone) != AuditStep::kAsking || !MayAudit()) return;
  if (digests.function != acknowledged_.digests().function) {
    acknowledged_.StartWith(digests.function);
    return Audit();
  }
  ++audits_;
  const std::string differences = DifferenceText(acknowledged_.digests(), digests);
  const auto now = std::chrono::steady_clock::now();
  bool reinstalls = false;
  differs_ = !differences.empty();
  if (in_sync() == differs_) busy_ = true;
  in_sync_ = !differs_;
  if (differs_) {
    ++audits_with_differences_;
    reinstalls = backoff_.Allow(now);
  } else {
    backoff_.InOrder(now);
  }
  if (events_.audited) events_.audited(differences, reinstalls);
  if (reinstalls) Resync();
}

bool Manager::finished() const {
  return server_found_ && !reinstalling_ && remaining_ == 0 && in_sync_.has_value();
}

bool Manager::settled() const {
  std::size_t failed = 0;
  for (const HalKind kind : kAllHalKinds) {
    failed += database_.counts(kind).at(static_cast<std::size_t>(Standing::kFailed));
  }
  return finished() && in_sync() && failed == 0;
}

ManagerQueues Manager::queues() {
  const MutexLock lock(&inbox_mutex_);
  return {{queue_.size(), due_peak_},
          {outstanding_installs_ + outstanding_removals_, outstanding_peak_},
          {inbox_.size(), inbox_peak_}};
}

void Manager::OnResult(const HalResult& result) { Put(result); }

void Manager::OnReinstall(HalKind kind) { Put(ReinstallNotice{kind}); }

void Manager::Put(Notification notification) {
  bool first = false;
  {
    const MutexLock lock(&inbox_mutex_);
    first = inbox_.empty();
    inbox_.push_back(std::move(notification));
    inbox_peak_ = std::max(inbox_peak_, inbox_.size());
  }
  if (first) boost::asio::post(*io_, [this] { Work(); });
}

// The host gets the events that follow only after its own call has returned.
void Manager::Wake() {
  busy_ = true;
  PostWork();
}

void Manager::PostWork() {
  if (std::exchange(work_posted_, true)) return;
  boost::asio::post(*io_, [this] {
    work_posted_ = false;
    Work();
  });
}

void Manager::Work() {
  {
    const MutexLock lock(&inbox_mutex_);
    taken_.swap(inbox_);
  }
  for (const Notification& notification : taken_) {
    std::visit([this](const auto& notice) { Handle(notice); }, notification);
  }
  taken_.clear();
  SendDue();
  if (reinstalling_ && server_found_ && remaining_ == 0) EndReinstall();
  if (!busy_ || !finished()) return;
  busy_ = false;
  if (events_.finished) events_.finished();
}

void Manager::Handle(const HalResult& result) {
  ++results_;
  Object* const object = database_.FindEntry({result.kind, result.id});
  if (object != nullptr && object->outstanding == result.action) {
    EndRequest(object, result.action, result.success, result.code, result.reason);
  }
  if (events_.results) events_.results(results_);
}

void Manager::Handle(const VrfResult& result) {
  Object* const entry = database_.FindEntry({HalKind::kVrf, result.number});
  if (entry == nullptr || entry->outstanding != result.action) return;
  EndRequest(entry, result.action, result.code == kHalSuccess, result.code, result.reason);
}

void Manager::Handle(const ServerFoundNotice& /*notice*/) { BeginReinstall(); }

void Manager::Handle(const ReinstallNotice& notice) {
  database_.ForEachEntry(notice.kind, [this](Object* entry) { MarkForReinstall(entry); });
}

void Manager::Handle(const EverythingAskedForNotice& /*notice*/) {
  server_found_ = true;
  if (events_.connection) events_.connection(true);
}

// A result from before the latest begin says nothing about that reinstall.
void Manager::Handle(const ReinstallEndedNotice& notice) {
  if (!server_found_ || reinstalling_) return;
  in_sync_ = notice.in_sync;
  if (events_.reinstall_ended) events_.reinstall_ended(notice.in_sync);
}

void Manager::Handle(const ServerLostNotice& /*notice*/) {
  LoseServer();
  if (events_.connection) events_.connection(false);
}

// The result of a request that is due or in flight is newer than this.
void Manager::Handle(const HalObjectState& state) {
  Object* const object = database_.FindEntry({state.kind, state.id});
  if (object == nullptr || !object->wanted || object->due || object->outstanding) return;
  const bool in_order = state.code == kHalSuccess;
  const bool confirmed =
      object->state() == ObjectState::kInstalled || object->state() == ObjectState::kSent;
  const bool awaits_hardware = object->code == kHalNoInterface || object->code == kHalKernelRefused;
  if (in_order && !object->broken && object->state() == ObjectState::kFailed && awaits_hardware) {
    busy_ = true;
    return MarkDue(object);
  }
  // Any other request that failed stays failed: only a request can change that.
  if (in_order ? !object->broken : !object->broken && !confirmed) return;
  object->broken = !in_order;
  object->code = state.code;
  object->set_reason(state.reason);
  database_.SetState(object, in_order ? EndState(*object) : ObjectState::kFailed);
  busy_ = true;
}

// The reinstall that follows the next server-found report sends whatever is due.
void Manager::LoseServer() {
  server_found_ = false;
  in_sync_.reset();
  differs_ = false;
  AbandonAudit();
  busy_ = true;
}

void Manager::BeginReinstall() {
  LoseServer();
  acknowledged_.Invalidate();
  reinstalling_ = true;
  reinstalled_objects_ = 0;
  reinstall_start_ = std::chrono::steady_clock::now();
  waitlist_.Clear();
  hal_->BeginReinstall();
  if (events_.reinstalling) events_.reinstalling();
}

void Manager::MarkForReinstall(Object* object) {
  object->presence = Presence::kAbsent;
  if (object->wanted) {
    ++reinstalled_objects_;
    object->attempts = 0;
    object->reinstall = true;
    MarkDue(object);
    return;
  }
  // Its request reached the new server, so the result decides what is left to remove.
  if (object->outstanding) return;
  ClearDue(object);
  database_.SetState(object, ObjectState::kRemoved);
}

// At the end, the server removes what the site does not have. That may make room for refused
// objects.
void Manager::EndReinstall() {
  hal_->EndReinstall();
  ++counters_.reinstalls;
  reinstalling_ = false;
  for (const HalKind kind : kAllHalKinds) {
    while (RetryForRoom(kind)) continue;
  }
  if (remaining_ != 0) PostWork();
  if (events_.reinstalled) {
    events_.reinstalled(reinstalled_objects_, std::chrono::steady_clock::now() - reinstall_start_);
  }
}

void Manager::MarkDue(Object* object) {
  if (!object->due && !object->outstanding) ++remaining_;
  object->due = true;
  object->broken = false;
  database_.SetState(object, ObjectState::kPending);
  if (object->outstanding) return;
  queue_.Add(object);
  due_peak_ = std::max(due_peak_, queue_.size());
}

void Manager::ClearDue(Object* object) {
  if (object->due && !object->outstanding) --remaining_;
  object->due = false;
  queue_.Remove(object);
}

void Manager::SetOutstanding(Object* object, std::optional<HalAction> action) {
  const bool begins = action.has_value();
  const HalAction which = begins ? *action : *object->outstanding;
  std::size_t& count = which == HalAction::kDestroy ? outstanding_removals_ : outstanding_installs_;
  count = begins ? count + 1 : count - 1;
  if (!object->due) remaining_ = begins ? remaining_ + 1 : remaining_ - 1;
  object->outstanding = action;
  outstanding_peak_ = std::max(outstanding_peak_, outstanding_installs_ + outstanding_removals_);
}

void Manager::SendDue() {
  for (int sent = 0; server_found_ && !queue_.empty(); ++sent) {
    if (sent == kSendBatch) {
      PostWork();
      return;
    }
    Object* const object = database_.FindEntry(queue_.front());
    if (!MayGoNext(*object)) return;
    const std::optional<HalAction> action = NextAction(*object);
    if (!action) {
      ClearDue(object);
      database_.SetState(object, ObjectState::kRemoved);
      continue;
    }
    if (!hal_->HasRoom()) return;
    Send(object, *action);
  }
}

// Nothing is removed while other objects may still have to be moved off it.
bool Manager::MayGoNext(const Object& object) const {
  return object.wanted || outstanding_installs_ == 0;
}

void Manager::Send(Object* object, HalAction action) {
  AbandonAudit();
  acknowledged_.WillChange(object);
  ClearDue(object);
  object->reinstall = false;
  SetOutstanding(object, action);
  switch (action) {
    case HalAction::kInstall:
      SendInstall(&object->content);
      break;
    case HalAction::kReplace:
      SendReplace(&object->content);
      break;
    case HalAction::kDestroy:
      SendDestroy(&object->content);
      break;
  }
}

void Manager::EndRequest(Object* object, HalAction action, bool success, HalReturnCode code,
                         const std::string& reason) {
  // An object to be removed may be gone already.
  ++counters_.results[code];
  const bool done = success || (action == HalAction::kDestroy && code == kHalNotFound);
  if (!done && IsHalCode(code)) ++refused_;
  object->code = done ? kHalSuccess : code;
  object->set_reason(done ? std::string() : reason);
  SetOutstanding(object, std::nullopt);
  if (done) {
    Succeeded(object, action);
  } else {
    Failed(object, action);
  }
  // Queue what became due while the request was in flight.
  if (object->due) MarkDue(object);
}

void Manager::Succeeded(Object* object, HalAction action) {
  object->attempts = 0;
  if (action == HalAction::kDestroy) {
    object->presence = Presence::kAbsent;
    database_.SetState(object, ObjectState::kRemoved);
    // A removed entry leaves room for a refused one.
    RetryForRoom(object->key.kind);
    return;
  }
  object->presence = Presence::kPresent;
  database_.SetState(object, EndState(*object));
  if (object->key.kind != HalKind::kVrf) RetryDependentsOf(object->key.id);
}

void Manager::Failed(Object* object, HalAction action) {
  const HalReturnCode code = object->code;
  if (code == kHalQueueFull) {
    MarkDue(object);
  } else if (code == kHalServerLost || code == kHalNoServer) {
    LoseServer();
    object->presence = Presence::kAbsent;
    MarkDue(object);
  } else if (code == kHalDeadline) {
    if (action == HalAction::kInstall && object->presence == Presence::kAbsent) {
      object->presence = Presence::kUnknown;
    }
    RetryOrFail(object);
  } else if (code == kHalNotFound) {
    object->presence = Presence::kAbsent;
    RetryOrFail(object);
  } else if (code == kHalExists) {
    object->presence = Presence::kPresent;
    RetryOrFail(object);
  } else if (code == kHalMissingReference) {
    WaitForReferences(object);
  } else {
    database_.SetState(object, ObjectState::kFailed);
    if (code == kHalTableFull) waitlist_.AddForRoom(object->key);
  }
}

void Manager::RetryOrFail(Object* object) {
  if (++object->attempts < kMaxAttempts) {
    ++counters_.retries;
    MarkDue(object);
  } else {
    database_.SetState(object, ObjectState::kFailed);
  }
}

// It is sent again once the last missing reference is installed. If none is missing any more, the
// refusal is stale.
void Manager::WaitForReferences(Object* object) {
  if (AwaitsReferences(*object)) {
    database_.SetState(object, ObjectState::kFailed);
  } else {
    RetryOrFail(object);
  }
}

// Puts the object on the waitlist for each destination that it refers to and that the HAL lacks.
// Returns whether there is one.
bool Manager::AwaitsReferences(const Object& object) {
  bool missing = false;
  for (const std::uint32_t id : ReferencedIds(object.content)) {
    if (database_.InHal(id)) continue;
    missing = true;
    waitlist_.AddForReference(id, object.key);
  }
  return missing;
}

void Manager::RetryDependentsOf(std::uint32_t id) {
  for (const ObjectKey& key : waitlist_.TakeForReference(id)) {
    Object* const object = database_.FindEntry(key);
    if (object == nullptr || !object->wanted || object->state() != ObjectState::kFailed) continue;
    if (!AwaitsReferences(*object)) MarkDue(object);
  }
}

// Resends one of the objects that found the table full. Returns whether there was one.
bool Manager::RetryForRoom(HalKind kind) {
  while (const auto key = waitlist_.TakeForRoom(kind)) {
    Object* const object = database_.FindEntry(*key);
    if (object == nullptr || !object->wanted || object->state() != ObjectState::kFailed) continue;
    MarkDue(object);
    return true;
  }
  return false;
}

}  // namespace reference
