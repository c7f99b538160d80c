#include "reference/data_plane/kernel_data_plane.h"

#include <algorithm>
#include <system_error>
#include <utility>
#include <variant>

#include "reference/data_plane/comparison.h"
#include "reference/data_plane/difference.h"

namespace reference {
namespace {

// The number of differing objects that a repair names.
constexpr std::size_t kNamed = 3;

// The most objects that a repair reads one by one. They take a few milliseconds, and the answers
// fit into the socket's buffer. More changes than that come in a storm, which is not over yet.
constexpr std::size_t kMaxSomeObjects = 1'000;

// The pause after counting the routes, as a multiple of the time that it took.
constexpr int kCountPause = 99;

template <typename Map>
void SubtractEach(const Map& objects, Map* from) {
  for (const auto& [key, object] : objects) from->erase(key);
}

void Subtract(const KernelObjects& objects, KernelObjects* from) {
  SubtractEach(objects.devices, &from->devices);
  SubtractEach(objects.neighbours, &from->neighbours);
  SubtractEach(objects.nexthops, &from->nexthops);
}

void Add(const KernelObjects& objects, KernelObjects* to) {
  to->devices.insert(objects.devices.begin(), objects.devices.end());
  to->neighbours.insert(objects.neighbours.begin(), objects.neighbours.end());
  to->nexthops.insert(objects.nexthops.begin(), objects.nexthops.end());
}

// The objects after the changes that were not refused.
KernelObjects After(const std::vector<KernelChange>& changes,
                    const std::vector<RefusedChange>& refused, KernelObjects objects) {
  auto next = refused.begin();
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (next != refused.end() && next->change == i) {
      ++next;
    } else {
      Apply(changes[i], &objects);
    }
  }
  return objects;
}

}  // namespace

KernelDataPlane::KernelDataPlane(Translation translation, Leftovers left, KernelAccess kernel,
                                 LogFunction log)
    : translation_(std::move(translation)),
      left_(std::move(left)),
      adopting_(left_.size() != 0),
      kernel_(std::move(kernel)),
      log_(std::move(log)) {}

HalReturnCode KernelDataPlane::Store(HalKind kind, std::uint32_t id,
                                     const google::protobuf::Message& message) {
  return translation_.Store(kind, id, message);
}

void KernelDataPlane::Remove(HalKind kind, std::uint32_t id) { translation_.Remove(kind, id); }

std::optional<std::string> KernelDataPlane::Commit() {
  Transition taken = translation_.Take();
  KernelObjects present;
  const std::vector<RefusedChange> refused = Write(taken, &present);
  if (refused.empty()) return std::nullopt;
  // The next transition has them again, if they are still wanted then.
  Subtract(taken.after, &wanted_);
  translation_.PutBack({std::move(present), std::move(taken.after)});
  return refused.front().text;
}

bool KernelDataPlane::CommitOrLeave() {
  KernelObjects present;
  const std::vector<RefusedChange> refused = Write(translation_.Take(), &present);
  for (const RefusedChange& one : refused) {
    if (log_) log_(LogLevel::kError, "the kernel differs from the tables now: " + one.text);
  }
  return refused.empty();
}

std::optional<std::uint64_t> KernelDataPlane::writes() const {
  if (!kernel_.read) return std::nullopt;
  return writes_;
}

bool KernelDataPlane::RemoveLeftovers(std::size_t limit) {
  if (!adopting_) return true;
  const std::vector<KernelChange> changes = Difference(left_.Take(limit), {});
  const std::vector<RefusedChange> refused = kernel_.write(changes);
  for (const RefusedChange& one : refused) {
    if (log_) log_(LogLevel::kError, "cannot remove what an earlier server left: " + one.text);
  }
  writes_ += changes.size() - refused.size();
  removed_ += changes.size() - refused.size();
  if (left_.size() != 0) return false;
  adopting_ = false;
  wanted_ = {};
  if (log_ && removed_ != 0) {
    log_(LogLevel::kInfo,
         "removed " + std::to_string(removed_) + " objects of an earlier server from the kernel");
  }
  return true;
}

bool KernelDataPlane::TakeChanges() {
  ForeignChanges taken = kernel_.take_changes();
  const bool concerned = !taken.empty();
  changes_.objects.neighbours.merge(taken.objects.neighbours);
  changes_.objects.nexthops.merge(taken.objects.nexthops);
  changes_.any_object =
      changes_.any_object || taken.any_object || changes_.objects.size() > kMaxSomeObjects;
  if (changes_.any_object) changes_.objects = {};
  return concerned;
}

// The kernel notifies of every object that a change of neighbours or next hops affects: also of the
// groups that lose a member, and of those that go with their last one.
Repair KernelDataPlane::RepairChanges() {
  ForeignChanges changes = std::exchange(changes_, {});
  if (changes.any_object || adopting_) return MakeAsWanted();
  // With each group that changes: the difference may have to park the group there.
  changes.objects.nexthops.insert(kDropNexthop);
  std::optional<KernelObjects> present = kernel_.read_some(changes.objects);
  if (!present) return MakeAsWanted();
  const Transition transition{std::move(*present), translation_.Objects(changes.objects)};
  RefusedObjects refused;
  Repair repair = Make(transition, &refused, &*present);
  // Whether an entry is broken depends on its other objects, too.
  if (!repair.refusals.empty()) repair.broken = Broken(kernel_.read(), refused);
  return repair;
}

Repair KernelDataPlane::MakeAsWanted() {
  if (!kernel_.read) return {};
  changes_ = {};
  KernelState state = kernel_.read();
  const bool interfaces_came = NoteDevices(state);
  Transition transition{std::move(state.objects), translation_.Objects()};
  UseMtusOfParents(state.mtus, &transition.after.devices);
  if (adopting_) {
    KernelObjects left = transition.before;
    Subtract(transition.after, &left);
    left_ = Leftovers(std::move(left), state.mtus);
    transition = left_.Extend(std::move(transition), wanted_);
  }
  RefusedObjects refused;
  Repair repair = Make(transition, &refused, &state.objects);
  repair.interfaces_came = interfaces_came;
  if (!repair.refusals.empty()) repair.broken = Broken(state, refused);
  return repair;
}

Repair KernelDataPlane::Make(const Transition& transition, RefusedObjects* refused_objects,
                             KernelObjects* present) {
  Repair repair;
  const std::vector<KernelChange> changes = Difference(transition.before, transition.after);
  if (changes.empty()) {
    CountLostRoutes(false);
    return repair;
  }
  for (const auto& [name, object] : Differences(transition.after, transition.before)) {
    if (++repair.differences > kNamed) continue;
    if (!repair.text.empty()) repair.text += ", ";
    repair.text += name + ' ' + ObjectStateText(object);
  }
  if (repair.differences > kNamed) repair.text += ", ...";
  const std::vector<RefusedChange> refused = WriteAndSettle(transition, changes, present);
  // The kernel removes the routes of a next hop together with it, and does not say so.
  const bool lost_nexthops =
      std::any_of(changes.begin(), changes.end(), [&transition](const KernelChange& change) {
        const auto* const put = std::get_if<PutNexthop>(&change);
        return put != nullptr && transition.before.nexthops.count(put->id) == 0;
      });
  if (const std::size_t lost = CountLostRoutes(lost_nexthops)) {
    repair.text += "; " + std::to_string(lost) +
                   (lost == 1 ? " route that used our next hops is gone; the program that added it "
                                "must add it again"
                              : " routes that used our next hops are gone; the programs that added "
                                "them must add them again");
  }
  for (const RefusedChange& one : refused) {
    repair.refusals.push_back(one.text);
    refused_objects->Add(changes[one.change], one.text);
  }
  return repair;
}

std::vector<HalObjectState> KernelDataPlane::Broken(const KernelState& state,
                                                    const RefusedObjects& refused) const {
  KernelObjects wanted = translation_.Objects();
  UseMtusOfParents(state.mtus, &wanted.devices);
  return BrokenEntries(translation_, wanted, state.objects, state.mtus, refused);
}

bool KernelDataPlane::NoteDevices(const KernelState& state) {
  std::set<std::string> others;
  for (const auto& [name, mtu] : state.mtus) {
    if (state.objects.devices.count(name) == 0) others.insert(name);
  }
  return translation_.NoteDevices(others, state.running);
}

std::size_t KernelDataPlane::CountLostRoutes(bool nexthops_are_lost) {
  if (!kernel_.count_routes) return 0;
  const auto begin = std::chrono::steady_clock::now();
  if (!nexthops_are_lost && begin < next_count_) return 0;
  std::size_t counted = 0;
  try {
    counted = kernel_.count_routes();
  } catch (const std::system_error&) {
    // Routes change too fast. The repair is made all the same.
    return 0;
  }
  const std::size_t before = std::exchange(routes_, counted);
  const auto end = std::chrono::steady_clock::now();
  next_count_ = end + kCountPause * (end - begin);
  return before - std::min(before, routes_);
}

std::vector<RefusedChange> KernelDataPlane::Write(const Transition& taken, KernelObjects* present) {
  Transition extended;
  if (adopting_) {
    Subtract(taken.before, &wanted_);
    Add(taken.after, &wanted_);
    extended = left_.Extend(taken, wanted_);
  }
  const Transition& transition = adopting_ ? extended : taken;
  return WriteAndSettle(transition, Difference(transition.before, transition.after), present);
}

std::vector<RefusedChange> KernelDataPlane::WriteAndSettle(const Transition& transition,
                                                           const std::vector<KernelChange>& changes,
                                                           KernelObjects* present) {
  std::vector<RefusedChange> refused;
  if (!changes.empty()) refused = kernel_.write(changes);
  writes_ += changes.size() - refused.size();
  if (!refused.empty()) *present = After(changes, refused, transition.before);
  if (adopting_) {
    left_.Settle(transition, refused.empty() ? transition.after : *present, wanted_);
  }
  return refused;
}

}  // namespace reference
