#include "reference/data_plane/linux/device_writer.h"

#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>
#include <variant>

#include "reference/data_plane/linux/sysctl.h"

namespace reference {
namespace {

constexpr int kMaxQuestions = 3;

// The devices that a device depends on; empty names for none.
struct Needs {
  std::string parent;
  std::string master;
};

Needs NeedsOf(const KernelDevice& device) {
  if (const auto* const macvlan = std::get_if<MacvlanDevice>(&device)) {
    return {macvlan->parent, macvlan->master};
  }
  if (const auto* const tagged = std::get_if<TaggedDevice>(&device)) return {tagged->parent, {}};
  return {};
}

void Refuse(std::size_t change, int error, const std::string& text, Refusals* refusals) {
  refusals->emplace(change, KernelRefusal{change, error, text});
}

// Whether the kernel can turn the device into the wanted one in place.
bool CanBecome(const Link& link, const KernelDevice& wanted,
               const std::map<int, std::string>& names) {
  const std::optional<KernelDevice> present = OurDevice(link, names);
  if (!present.has_value() || present->index() != wanted.index()) return false;
  if (std::holds_alternative<MacvlanDevice>(wanted)) {
    return NeedsOf(*present).parent == NeedsOf(wanted).parent;
  }
  return *present == wanted;
}

}  // namespace

void DeviceWriter::Add(std::size_t change, const PutDevice& put) {
  works_.push_back({change, &put});
  names_.insert(put.name);
}

bool DeviceWriter::Conflicts(const PutDevice& put) const {
  const Needs needs = NeedsOf(put.device);
  return names_.count(put.name) + names_.count(needs.parent) + names_.count(needs.master) > 0;
}

void DeviceWriter::Write(DeviceIndexes* ours, Refusals* refusals) {
  std::set<std::string> names = names_;
  for (const Work& work : works_) {
    const Needs needs = NeedsOf(work.put->device);
    for (const std::string& name : {needs.parent, needs.master}) {
      if (!name.empty()) names.insert(name);
    }
  }
  LookUp(names);
  Create(refusals);
  Change(refusals);
  EnableIpv6(refusals);
  Finish(ours, refusals);
}

void DeviceWriter::LookUp(const std::set<std::string>& names) {
  std::vector<std::string> left(names.begin(), names.end());
  for (int attempt = 0; attempt < kMaxQuestions && !left.empty(); ++attempt) {
    MessageBatch batch;
    for (const std::string& name : left) WriteLinkQuery(name, &batch);
    const std::vector<KernelError> errors =
        client_->Exchange(&batch, [this](std::size_t /*message*/, const nlmsghdr& answer) {
          Link link = ReadLink(answer);
          links_[link.name] = std::move(link);
        });
    std::vector<std::string> unknown;
    for (const KernelError& error : errors) {
      if (error.error != ENODEV) unknown.push_back(left[error.message]);
    }
    left = std::move(unknown);
  }
}

DeviceIndexes DeviceWriter::Indexes() const {
  DeviceIndexes indexes;
  for (const auto& [name, link] : links_) indexes[name] = link.index;
  return indexes;
}

void DeviceWriter::Create(Refusals* refusals) {
  const DeviceIndexes indexes = Indexes();
  MessageBatch batch;
  std::vector<std::size_t> changes;
  std::set<std::string> created;
  for (Work& work : works_) {
    const Needs needs = NeedsOf(work.put->device);
    for (const std::string& name : {needs.parent, needs.master}) {
      if (name.empty() || links_.count(name) > 0) continue;
      Refuse(work.change, ENODEV, "there is no device " + name, refusals);
    }
    if (links_.count(work.put->name) > 0 || refusals->count(work.change) > 0) continue;
    WriteNewDevice(work.put->name, work.put->device, indexes, &batch);
    changes.push_back(work.change);
    created.insert(work.put->name);
    work.created = true;
  }
  for (const KernelError& error : client_->Exchange(&batch)) {
    // If the answer was lost, the lookup below shows whether the device exists.
    if (error.certain) Refuse(changes[error.message], error.error, error.text, refusals);
  }
  LookUp(created);
}

void DeviceWriter::Change(Refusals* refusals) {
  const DeviceIndexes indexes = Indexes();
  std::map<int, std::string> names;
  for (const auto& [name, index] : indexes) names[index] = name;
  MessageBatch batch;
  std::vector<std::pair<std::size_t, const PutDevice*>> written;
  for (const Work& work : works_) {
    if (refusals->count(work.change) > 0) continue;
    const std::string& name = work.put->name;
    const auto found = links_.find(name);
    if (found == links_.end()) {
      Refuse(work.change, ENODEV, "the device " + name + " disappeared", refusals);
    } else if (found->second.group != kDeviceGroup) {
      Refuse(work.change, EEXIST, "another program has a device " + name + "; remove it first",
             refusals);
    } else if (!CanBecome(found->second, work.put->device, names)) {
      Refuse(work.change, EEXIST,
             "the device " + name + " has another kind, parent, tag or table; remove it first",
             refusals);
    } else if (!found->second.ipv6.has_value()) {
      Refuse(work.change, EAFNOSUPPORT,
             "the device " + name + " has no IPv6, which its next hop needs; its MTU is " +
                 std::to_string(found->second.mtu) + ", and IPv6 takes 1280 or more",
             refusals);
    } else {
      WriteDeviceChange(found->second, work.put->device, indexes, &batch);
      WriteDeviceUp(found->second.index, &batch);
      written.insert(written.end(), 2, {work.change, work.put});
    }
  }
  for (const KernelError& error : client_->Exchange(&batch)) {
    const auto& [change, put] = written[error.message];
    // The kernel has no error text for this.
    const bool same_address = error.error == EADDRINUSE;
    Refuse(change, error.error,
           same_address ? NeedsOf(put->device).parent +
                              ", or another destination on it, has the MAC address of " + put->name
                        : error.text,
           refusals);
  }
}

// These IPv6 settings exist only as files.
void DeviceWriter::EnableIpv6(Refusals* refusals) {
  for (const Work& work : works_) {
    if (refusals->count(work.change) > 0) continue;
    const Link::Ipv6& present = *links_[work.put->name].ipv6;
    const std::string folder = "/proc/sys/net/ipv6/conf/" + work.put->name + '/';
    const auto set = [&](const std::string& file, bool value) {
      const std::string path = folder + file;
      const int error = WriteSysctl(path, value ? "1" : "0");
      if (error == 0) return;
      std::string text = "cannot write " + path + ": ";
      text += std::generic_category().message(error);
      Refuse(work.change, error, text, refusals);
    };
    if (present.disabled) set("disable_ipv6", false);
    const std::optional<bool> forwarding = ForwardingOf(work.put->device);
    if (!forwarding.has_value()) continue;
    if (present.forwards != *forwarding) set("forwarding", *forwarding);
    // Since Linux 6.17, a device can forward even if the namespace does not.
    const std::string force = "force_forwarding";
    if (!ReadSysctl(folder + force).empty()) set(force, *forwarding);
  }
}

void DeviceWriter::Finish(DeviceIndexes* ours, Refusals* refusals) {
  MessageBatch batch;
  std::vector<std::size_t> removed;
  for (const Work& work : works_) {
    const auto found = links_.find(work.put->name);
    if (found == links_.end() || found->second.group != kDeviceGroup) continue;
    const bool refused = refusals->count(work.change) > 0;
    if (refused && work.created) {
      WriteDeviceRemoval(found->second.index, &batch);
      removed.push_back(work.change);
    } else {
      (*ours)[work.put->name] = found->second.index;
    }
  }
  // If a device stays, the next `LinuxKernel::Read` finds it.
  for (const KernelError& error : client_->Exchange(&batch)) {
    if (error.error == ENODEV) continue;
    refusals->at(removed[error.message]).text +=
        "; the half-made device stays, because it cannot be removed: " + error.text;
  }
}

}  // namespace reference
