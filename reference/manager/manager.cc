#include "reference/manager/manager.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <optional>
#include <utility>

#include "reference/manager/adapters.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"

namespace reference {
namespace {

// How many requests are sent before results are looked at again, of which there may be as many.
constexpr int kSendBatch = 1024;

// How often a request is sent that ends without a verdict on the object.
constexpr std::uint8_t kMaxAttempts = 3;

HalAction NextAction(const Object& object) {
  if (!object.wanted) return HalAction::kDestroy;
  const bool replace = object.presence == Presence::kPresent && !object.reinstall &&
                       object.key.kind != HalKind::kEcmp;
  return replace ? HalAction::kReplace : HalAction::kInstall;
}

}  // namespace

Manager::Manager(boost::asio::io_context* io, ManagerEvents events)
    : io_(io), events_(std::move(events)) {
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
  hal->Start({hai->hal_encap_callback(),
              [] { dest_mng::HaiDestClientCallback::HalServerFoundCallback(nullptr); },
              [this] { Put(RoomNotice()); }});
}

void Manager::Apply(const Site& site) {
  SetInterfaces(site.interfaces);
  wanted_vrf_ids_.clear();
  for (const SiteVrf& vrf : site.vrfs) wanted_vrf_ids_.insert(vrf.vrf_id);

  const DestDatabase::Changes changes = database_.Replace(site);
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

bool Manager::settled() const { return server_found_ && !reinstalling_ && remaining_ == 0; }

ManagerQueues Manager::queues() {
  const std::lock_guard lock(inbox_mutex_);
  return {{queue_.size(), due_peak_},
          {outstanding_installs_ + outstanding_removals_, outstanding_peak_},
          {inbox_.size(), inbox_peak_}};
}

void Manager::OnResult(const HalResult& result) { Put(result); }

void Manager::OnReinstall(HalKind kind) { Put(kind); }

void Manager::Put(const Notification& notification) {
  bool first = false;
  {
    const std::lock_guard lock(inbox_mutex_);
    first = inbox_.empty();
    inbox_.push_back(notification);
    inbox_peak_ = std::max(inbox_peak_, inbox_.size());
  }
  if (first) boost::asio::post(*io_, [this] { Work(); });
}

// The host hears of what follows only after its own call has returned.
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
  std::vector<Notification> notifications;
  {
    const std::lock_guard lock(inbox_mutex_);
    notifications.swap(inbox_);
  }
  for (const Notification& notification : notifications) {
    std::visit([this](const auto& notice) { Handle(notice); }, notification);
  }
  SendDue();
  if (reinstalling_ && server_found_ && remaining_ == 0) EndReinstall();
  if (!busy_ || !settled()) return;
  busy_ = false;
  if (events_.settled) events_.settled();
}

void Manager::Handle(const HalResult& result) {
  ++results_;
  Object* const object = database_.Find({result.kind, result.id});
  if (object != nullptr && object->outstanding == result.action) {
    // What is to be removed may be gone already.
    const bool success =
        result.success || (result.action == HalAction::kDestroy && result.code == kHalNotFound);
    object->code = success ? kHalSuccess : result.code;
    SetOutstanding(object, std::nullopt);
    if (success) {
      Succeeded(object, result.action);
    } else {
      Failed(object, result.action);
    }
    // What became due while the request was outstanding.
    if (object->due) MarkDue(object);
  }
  if (events_.results) events_.results(results_);
}

// The library asks for the kinds one after the other, VRFs first and MPLS destinations last.
void Manager::Handle(HalKind reinstall) {
  if (reinstall == HalKind::kVrf) BeginReinstall();
  auto& objects = database_.objects();
  for (auto entry = objects.lower_bound({reinstall, 0});
       entry != objects.end() && entry->first.kind == reinstall; ++entry) {
    MarkForReinstall(&entry->second);
  }
  if (reinstall == HalKind::kMpls) server_found_ = true;
}

void Manager::BeginReinstall() {
  server_found_ = false;
  reinstalling_ = true;
  busy_ = true;
  reinstalled_objects_ = 0;
  reinstall_start_ = std::chrono::steady_clock::now();
  waiting_.clear();
  for (auto& ids : without_room_) ids.clear();
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
  // The result of a request that reached the new server already decides what is left to remove.
  if (object->outstanding) return;
  ClearDue(object);
  object->state = ObjectState::kRemoved;
}

void Manager::EndReinstall() {
  hal_->EndReinstall();
  reinstalling_ = false;
  if (events_.reinstalled) {
    events_.reinstalled(reinstalled_objects_, std::chrono::steady_clock::now() - reinstall_start_);
  }
}

void Manager::MarkDue(Object* object) {
  if (!object->due && !object->outstanding) ++remaining_;
  object->due = true;
  object->state = ObjectState::kPending;
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
    Object* const object = database_.Find(queue_.front());
    if (!MayGoNext(*object)) return;
    if (!NeedsRequest(*object)) {
      ClearDue(object);
      object->state = ObjectState::kRemoved;
      continue;
    }
    if (!hal_->HasRoom()) return;
    Send(object);
  }
}

// Nothing is removed while something may still have to be moved away from it.
bool Manager::MayGoNext(const Object& object) const {
  return object.wanted || outstanding_installs_ == 0;
}

bool Manager::NeedsRequest(const Object& object) const {
  if (object.wanted) return true;
  if (object.presence == Presence::kAbsent) return false;
  // VRFs may share a numeric id, under which the HAL has them once.
  return object.key.kind != HalKind::kVrf || wanted_vrf_ids_.count(object.sent_vrf_id) == 0;
}

void Manager::Send(Object* object) {
  if (object->key.kind == HalKind::kVrf) {
    SendVrf(object);
    return;
  }
  const HalAction action = NextAction(*object);
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

// One request, after which a changed VRF is still due.
void Manager::SendVrf(Object* object) {
  const auto& vrf = std::get<dest_mng::VrfData>(object->content);
  const bool moved = object->presence == Presence::kPresent && object->sent_vrf_id != vrf.vrf_id &&
                     wanted_vrf_ids_.count(object->sent_vrf_id) == 0;
  if (!object->wanted || moved) {
    SendDestroyVrf(vrf, object->sent_vrf_id);
    object->presence = Presence::kAbsent;
    if (object->wanted) return;
    ClearDue(object);
    object->state = ObjectState::kRemoved;
    return;
  }
  ClearDue(object);
  object->reinstall = false;
  SendInstall(&object->content);
  object->presence = Presence::kPresent;
  object->sent_vrf_id = vrf.vrf_id;
  object->state = ObjectState::kSent;
}

void Manager::Succeeded(Object* object, HalAction action) {
  object->attempts = 0;
  if (action == HalAction::kDestroy) {
    object->presence = Presence::kAbsent;
    object->state = ObjectState::kRemoved;
    RetryAfterRemoval(object->key.kind);
    return;
  }
  object->presence = Presence::kPresent;
  object->state = ObjectState::kInstalled;
  RetryDependentsOf(object->key.id);
}

void Manager::Failed(Object* object, HalAction action) {
  const HalReturnCode code = object->code;
  if (code == kHalQueueFull) {
    MarkDue(object);
  } else if (code == kHalServerLost || code == kHalNoServer) {
    // The reinstall that follows sends it again.
    server_found_ = false;
    busy_ = true;
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
    object->state = ObjectState::kFailed;
    if (code == kHalTableFull) {
      without_room_.at(static_cast<std::size_t>(object->key.kind)).insert(object->key.id);
    }
  }
}

void Manager::RetryOrFail(Object* object) {
  if (++object->attempts < kMaxAttempts) {
    MarkDue(object);
  } else {
    object->state = ObjectState::kFailed;
  }
}

// It is sent again when the last missing one has been installed. When none is missing any more, the
// refusal is out of date.
void Manager::WaitForReferences(Object* object) {
  bool missing = false;
  for (const std::uint32_t id : ReferencedIds(object->content)) {
    if (database_.InHal(id)) continue;
    missing = true;
    waiting_.emplace(id, object->key);
  }
  if (missing) {
    object->state = ObjectState::kFailed;
  } else {
    RetryOrFail(object);
  }
}

void Manager::RetryDependentsOf(std::uint32_t id) {
  for (auto entry = waiting_.lower_bound({id, {}}); entry != waiting_.end() && entry->first == id;
       entry = waiting_.erase(entry)) {
    Object* const object = database_.Find(entry->second);
    if (object == nullptr || !object->wanted || object->state != ObjectState::kFailed) continue;
    const std::vector<std::uint32_t> ids = ReferencedIds(object->content);
    const bool complete = std::all_of(ids.begin(), ids.end(), [this](std::uint32_t reference) {
      return database_.InHal(reference);
    });
    if (complete) MarkDue(object);
  }
}

// An entry less leaves room for one that was refused.
void Manager::RetryAfterRemoval(HalKind kind) {
  auto& ids = without_room_.at(static_cast<std::size_t>(kind));
  while (!ids.empty()) {
    Object* const object = database_.Find({kind, *ids.begin()});
    ids.erase(ids.begin());
    if (object == nullptr || !object->wanted || object->state != ObjectState::kFailed) continue;
    MarkDue(object);
    return;
  }
}

}  // namespace reference
