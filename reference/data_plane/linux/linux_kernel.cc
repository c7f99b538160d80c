#include "reference/data_plane/linux/linux_kernel.h"

#include <fcntl.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <variant>

#include "reference/data_plane/linux/sysctl.h"

namespace reference {
namespace {

// If set, the kernel sends a notification for every route of a next hop that changes.
constexpr char kCompatMode[] = "/proc/sys/net/ipv4/nexthop_compat_mode";

[[noreturn]] void Fail(int error, const std::string& text) {
  throw std::system_error(error, std::generic_category(), text);
}

NetlinkSockets OpenSocketsIn(const std::string& netns) {
  if (!netns.empty()) {
    const std::string path = "/run/netns/" + netns;
    const int folder = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (folder < 0) {
      Fail(errno, "cannot open the network namespace " + netns + " (create it with ip netns add " +
                      netns + ")");
    }
    const int error = setns(folder, CLONE_NEWNET) == 0 ? 0 : errno;
    close(folder);
    if (error != 0) {
      Fail(error, "cannot enter the network namespace " + netns +
                      ", which needs CAP_SYS_ADMIN (run it as root: sudo)");
    }
  }
  return OpenNetlinkSockets();
}

// Whether the kernel's objects show that the change was made.
struct IsMade {
  const KernelObjects& present;

  bool operator()(const PutDevice& put) const {
    const auto found = present.devices.find(put.name);
    return found != present.devices.end() && found->second == put.device;
  }
  bool operator()(const RemoveDevice& removal) const {
    return present.devices.count(removal.name) == 0;
  }
  bool operator()(const PutNeighbour& put) const {
    const auto found = present.neighbours.find(put.key);
    return found != present.neighbours.end() && found->second == put.address;
  }
  bool operator()(const RemoveNeighbour& removal) const {
    return present.neighbours.count(removal.key) == 0;
  }
  bool operator()(const PutNexthop& put) const {
    const auto found = present.nexthops.find(put.id);
    return found != present.nexthops.end() && found->second == put.nexthop;
  }
  bool operator()(const RemoveNexthop& removal) const {
    return present.nexthops.count(removal.id) == 0;
  }
};

bool IsRemoval(const KernelChange& change) {
  return std::holds_alternative<RemoveDevice>(change) ||
         std::holds_alternative<RemoveNeighbour>(change) ||
         std::holds_alternative<RemoveNexthop>(change);
}

}  // namespace

LinuxKernel::LinuxKernel(const std::string& netns) : LinuxKernel(OpenSocketsIn(netns)) {}

LinuxKernel::LinuxKernel(NetlinkSockets sockets)
    : client_(std::move(sockets.requests)), notifications_(std::move(sockets.notifications)) {
  CheckPrivileges();
  const std::string mode = ReadSysctl(kCompatMode);
  if (mode == "1" && WriteSysctl(kCompatMode, "0") == 0) compat_mode_ = mode;
}

LinuxKernel::~LinuxKernel() {
  if (!compat_mode_.empty()) WriteSysctl(kCompatMode, compat_mode_);
}

// Asks to remove a next hop that cannot exist: the kernel checks privileges before it looks at the
// request.
void LinuxKernel::CheckPrivileges() {
  MessageBatch batch;
  WriteNexthopRemoval(0, &batch);
  for (const KernelError& error : client_.Exchange(&batch)) {
    if (error.error == EPERM) {
      Fail(EPERM,
           "changing the network needs CAP_NET_ADMIN (run it as root, or allow it: sudo setcap "
           "cap_net_admin+ep PROGRAM)");
    }
    if (error.error == EOPNOTSUPP) {
      Fail(EOPNOTSUPP, "this kernel has no next-hop objects (Linux 5.3 and later have them)");
    }
  }
}

std::map<int, Link> LinuxKernel::ReadLinks() {
  std::map<int, Link> links;
  MessageBatch dump;
  WriteLinkDump(&dump);
  client_.Dump(
      &dump, [&] { links.clear(); },
      [&](const nlmsghdr& message) {
        Link link = ReadLink(message);
        links[link.index] = std::move(link);
      });
  return links;
}

void LinuxKernel::RemoveDevicesThatAreDown() {
  MessageBatch batch;
  for (const auto& [index, link] : ReadLinks()) {
    if (!link.up && OurDevice(link, {}).has_value()) WriteDeviceRemoval(index, &batch);
  }
  // Best effort: a device that stays makes the requests fail that need its name.
  client_.Exchange(&batch);
}

KernelObjects LinuxKernel::Read() {
  KernelObjects objects;
  const std::map<int, Link> links = ReadLinks();
  std::map<int, std::string> names;
  for (const auto& [index, link] : links) names[index] = link.name;
  DeviceIndexes devices;
  for (const auto& [index, link] : links) {
    const std::optional<KernelDevice> device = OurDevice(link, names);
    if (!device.has_value()) continue;
    if (link.up) objects.devices[link.name] = *device;
    devices[link.name] = index;
  }

  MessageBatch neighbour_dump;
  WriteNeighbourDump(&neighbour_dump);
  client_.Dump(
      &neighbour_dump, [&] { objects.neighbours.clear(); },
      [&](const nlmsghdr& message) {
        const std::optional<NeighbourEntry> entry = ReadNeighbour(message);
        if (!entry.has_value() || !entry->permanent) return;
        objects.neighbours[{names[entry->device], entry->address}] = entry->mac;
      });

  MessageBatch nexthop_dump;
  WriteNexthopDump(&nexthop_dump);
  decltype(nexthops_) nexthops;
  client_.Dump(
      &nexthop_dump,
      [&] {
        objects.nexthops.clear();
        nexthops.clear();
      },
      [&](const nlmsghdr& message) {
        NexthopEntry entry = ReadNexthop(message);
        if (entry.protocol != kRoutingProtocol) return;
        if (auto* const via = std::get_if<DeviceNexthop>(&entry.nexthop)) {
          via->device = names[entry.device];
        }
        nexthops.emplace(entry.id, batch_number_);
        objects.nexthops[entry.id] = std::move(entry.nexthop);
      });
  // Only now: after a dump that fails, `Apply` still has to know what is ours.
  devices_ = std::move(devices);
  nexthops_ = std::move(nexthops);
  return objects;
}

KernelObjects LinuxKernel::ReadWithin(std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds kPause(100);
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    try {
      return Read();
    } catch (const std::system_error& error) {
      if (error.code().value() != EAGAIN || std::chrono::steady_clock::now() >= end) throw;
    }
    std::this_thread::sleep_for(kPause);
  }
}

std::map<int, std::string> LinuxKernel::NamesOf(const std::set<int>& indexes) const {
  std::map<int, std::string> names;
  if (indexes.empty()) return names;
  for (const auto& [name, index] : devices_) {
    if (indexes.count(index) != 0) names[index] = name;
  }
  return names;
}

std::optional<KernelObjects> LinuxKernel::ReadSome(const ObjectKeys& keys) {
  MessageBatch queries;
  for (const auto& [device, address] : keys.neighbours) {
    const auto found = devices_.find(device);
    if (found == devices_.end()) return std::nullopt;
    WriteNeighbourQuery(found->second, address, &queries);
  }
  for (const std::uint32_t id : keys.nexthops) WriteNexthopQuery(id, &queries);

  std::vector<NeighbourEntry> neighbours;
  std::vector<NexthopEntry> nexthops;
  std::set<int> indexes;
  const auto take = [&](std::size_t /*query*/, const nlmsghdr& answer) {
    if (answer.nlmsg_type == RTM_NEWNEIGH) {
      const std::optional<NeighbourEntry> entry = ReadNeighbour(answer);
      if (!entry.has_value() || !entry->permanent) return;
      indexes.insert(entry->device);
      neighbours.push_back(*entry);
    } else {
      NexthopEntry entry = ReadNexthop(answer);
      if (entry.protocol != kRoutingProtocol) return;
      if (std::holds_alternative<DeviceNexthop>(entry.nexthop)) indexes.insert(entry.device);
      nexthops.push_back(std::move(entry));
    }
  };
  for (const KernelError& error : client_.Exchange(&queries, take)) {
    if (error.error != ENOENT) return std::nullopt;
  }
  const std::map<int, std::string> names = NamesOf(indexes);
  if (names.size() != indexes.size()) return std::nullopt;

  KernelObjects objects;
  for (const NeighbourEntry& entry : neighbours) {
    objects.neighbours[{names.at(entry.device), entry.address}] = entry.mac;
  }
  for (const std::uint32_t id : keys.nexthops) nexthops_.erase(id);
  for (NexthopEntry& entry : nexthops) {
    if (auto* const via = std::get_if<DeviceNexthop>(&entry.nexthop)) {
      via->device = names.at(entry.device);
    }
    nexthops_.emplace(entry.id, batch_number_);
    objects.nexthops[entry.id] = std::move(entry.nexthop);
  }
  return objects;
}

std::map<std::string, std::uint32_t> LinuxKernel::Devices() {
  std::map<std::string, std::uint32_t> devices;
  for (const auto& [index, link] : ReadLinks()) devices[link.name] = link.mtu;
  return devices;
}

std::set<std::string> LinuxKernel::RunningDevices() {
  std::set<std::string> running;
  for (const auto& [index, link] : ReadLinks()) {
    if (link.running) running.insert(link.name);
  }
  return running;
}

std::size_t LinuxKernel::CountRoutes() {
  std::size_t routes = 0;
  for (const auto write : {WriteIpv4RouteDump, WriteIpv6RouteDump}) {
    MessageBatch dump;
    write(&dump);
    const std::size_t before = routes;
    client_.Dump(
        &dump, [&] { routes = before; },
        [&](const nlmsghdr& message) {
          if (nexthops_.count(ReadNexthopOfRoute(message)) != 0) ++routes;
        });
  }
  return routes;
}

std::vector<LinuxKernel::Refusal> LinuxKernel::Apply(const std::vector<KernelChange>& changes) {
  Refusals refusals;
  for (std::size_t index = 0; index < changes.size();) {
    if (std::holds_alternative<PutDevice>(changes[index])) {
      DeviceWriter writer(&client_);
      for (; index < changes.size(); ++index) {
        const auto* const put = std::get_if<PutDevice>(&changes[index]);
        if (put == nullptr || writer.Conflicts(*put)) break;
        writer.Add(index, *put);
      }
      writer.Write(&devices_, &refusals);
      continue;
    }
    batch_.Clear();
    ++batch_number_;
    Pending pending;
    for (; index < changes.size() && !batch_.IsFull(); ++index) {
      const KernelChange& change = changes[index];
      if (std::holds_alternative<PutDevice>(change) || MustWait(change)) break;
      Write(index, change, &pending, &refusals);
    }
    Send(pending, &refusals);
  }
  std::vector<Refusal> failed;
  for (auto& [index, refusal] : refusals) failed.push_back(std::move(refusal));
  return failed;
}

bool LinuxKernel::MustWait(const KernelChange& change) const {
  // Also ends the wait after 2^32 batches, when a number returns.
  if (batch_.count() == 0) return false;
  const auto* const put = std::get_if<PutNexthop>(&change);
  const auto* const removal = std::get_if<RemoveNexthop>(&change);
  if (put == nullptr && removal == nullptr) return false;
  const auto known = nexthops_.find(put != nullptr ? put->id : removal->id);
  return known != nexthops_.end() && known->second == batch_number_;
}

void LinuxKernel::Write(std::size_t index, const KernelChange& change, Pending* pending,
                        Refusals* refusals) {
  const std::size_t before = batch_.count();
  const auto refuse = [&](int error, const std::string& text) {
    refusals->emplace(index, Refusal{index, error, text});
  };
  // Returns the device's index, or refuses the change and returns 0.
  const auto device = [&](const std::string& name) {
    const auto found = devices_.find(name);
    if (found != devices_.end()) return found->second;
    refuse(ENODEV, "there is no device " + name);
    return 0;
  };
  if (const auto* const put = std::get_if<PutNexthop>(&change)) {
    const auto* const group = std::get_if<NexthopGroup>(&put->nexthop);
    const auto* const via = std::get_if<DeviceNexthop>(&put->nexthop);
    const int out = via == nullptr ? 0 : device(via->device);
    if (group != nullptr && group->members.size() > kMaxMembers) {
      refuse(E2BIG, "a group of " + std::to_string(group->members.size()) +
                        " next hops does not fit into a message; at most " +
                        std::to_string(kMaxMembers) + " do");
    } else if (via == nullptr || out != 0) {
      const bool added = nexthops_.emplace(put->id, batch_number_).second;
      WriteNexthop(put->id, put->nexthop, out, !added, &batch_);
    }
  } else if (const auto* const removal = std::get_if<RemoveNexthop>(&change)) {
    const auto known = nexthops_.find(removal->id);
    if (known != nexthops_.end()) {
      known.value() = batch_number_;
      WriteNexthopRemoval(removal->id, &batch_);
    }
  } else if (const auto* const neighbour = std::get_if<PutNeighbour>(&change)) {
    const auto& [name, address] = neighbour->key;
    if (const int on = device(name)) WriteNeighbour(on, address, neighbour->address, &batch_);
  } else if (const auto* const forgotten = std::get_if<RemoveNeighbour>(&change)) {
    const auto& [name, address] = forgotten->key;
    const auto found = devices_.find(name);
    if (found != devices_.end()) WriteNeighbourRemoval(found->second, address, &batch_);
  } else if (const auto* const gone = std::get_if<RemoveDevice>(&change)) {
    const auto found = devices_.find(gone->name);
    if (found != devices_.end()) WriteDeviceRemoval(found->second, &batch_);
  }
  if (batch_.count() > before) pending->emplace_back(index, &change);
}

void LinuxKernel::Send(const Pending& pending, Refusals* refusals) {
  Pending unknown;
  Refusal lost;
  for (const KernelError& error : client_.Exchange(&batch_)) {
    const auto& [index, change] = pending[error.message];
    if (!error.certain) {
      unknown.emplace_back(index, change);
      lost = {index, error.error, error.text};
    } else if (IsRemoval(*change) && (error.error == ENOENT || error.error == ENODEV)) {
      // Already gone.
    } else if (error.error == EEXIST && std::holds_alternative<PutNexthop>(*change)) {
      const std::string id = std::to_string(std::get<PutNexthop>(*change).id);
      std::string text = "another program has a next hop ";
      text += id;
      text += "; remove it first: ip nexthop del id ";
      text += id;
      refusals->emplace(index, Refusal{index, EEXIST, text});
    } else {
      refusals->emplace(index, Refusal{index, error.error, error.text});
    }
  }
  for (const auto& [index, change] : pending) {
    const bool refused = refusals->count(index) > 0;
    if (IsRemoval(*change) != refused) Forget(*change);
  }
  if (!unknown.empty()) Verify(unknown, lost, refusals);
}

void LinuxKernel::Forget(const KernelChange& change) {
  if (const auto* const put = std::get_if<PutNexthop>(&change)) {
    const auto known = nexthops_.find(put->id);
    if (known != nexthops_.end() && known->second == batch_number_) nexthops_.erase(known);
  } else if (const auto* const removal = std::get_if<RemoveNexthop>(&change)) {
    nexthops_.erase(removal->id);
  } else if (const auto* const gone = std::get_if<RemoveDevice>(&change)) {
    devices_.erase(gone->name);
  }
}

void LinuxKernel::Verify(const Pending& unknown, const Refusal& reason, Refusals* refusals) {
  // This also updates `devices_` and `nexthops_`.
  std::optional<KernelObjects> present;
  try {
    present = Read();
  } catch (const std::system_error&) {
    // The next comparison finds what has been made all the same.
  }
  for (const auto& [index, change] : unknown) {
    if (present && std::visit(IsMade{*present}, *change)) continue;
    refusals->emplace(index, Refusal{index, reason.error, reason.text});
  }
}

ForeignChanges LinuxKernel::TakeNotifications() {
  std::vector<char> buffer;
  ForeignChanges changes;
  std::vector<NeighbourEntry> neighbours;
  std::set<int> indexes;
  const bool complete = ReceiveAll(notifications_.get(), &buffer, [&](const nlmsghdr& message) {
    switch (message.nlmsg_type) {
      case RTM_NEWLINK:
      case RTM_DELLINK:
        changes.any_object = true;
        break;
      case RTM_NEWNEIGH:
        if (const std::optional<NeighbourEntry> entry = ReadNeighbour(message)) {
          indexes.insert(entry->device);
          neighbours.push_back(*entry);
        }
        break;
      case RTM_NEWNEXTHOP:
      case RTM_DELNEXTHOP: {
        const NexthopEntry entry = ReadNexthop(message);
        if (entry.protocol != kRoutingProtocol && nexthops_.count(entry.id) == 0) break;
        changes.objects.nexthops.insert(entry.id);
        const auto* const group = std::get_if<NexthopGroup>(&entry.nexthop);
        if (group != nullptr && group->members.size() > kMaxQueriedMembers) {
          changes.any_object = true;
        }
        break;
      }
      default:
        break;
    }
  });
  const std::map<int, std::string> names = NamesOf(indexes);
  for (const NeighbourEntry& entry : neighbours) {
    const std::string* const name = Find(names, entry.device);
    if (name != nullptr) changes.objects.neighbours.emplace(*name, entry.address);
  }
  changes.any_object = changes.any_object || !complete || names.size() != indexes.size();
  return changes;
}

}  // namespace reference
