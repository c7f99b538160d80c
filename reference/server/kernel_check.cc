#include "reference/server/kernel_check.h"

#include <cstddef>
#include <ostream>
#include <set>

#include "reference/data_plane/linux/linux_kernel.h"
#include "reference/data_plane/translation.h"

namespace reference {
namespace {

// Decodes and stores an entry.
HalReturnCode StoreEntry(HalKind kind, std::uint32_t id, const std::string& payload,
                         Translation* translation) {
  return VisitKind(kind, [&](auto row) {
    typename decltype(row)::Message message;
    if (!message.ParseFromString(payload)) return kHalBadRequest;
    return translation->Store(kind, id, message);
  });
}

std::vector<std::string> ObjectsOf(HalKind kind, std::uint32_t id, const KernelObjects& wanted) {
  if (kind != HalKind::kVrf) return ObjectsOfDestination(id, wanted);
  if (wanted.devices.count(VrfDeviceName(id)) == 0) return {};
  return {VrfDeviceName(id)};
}

}  // namespace

std::string EntryText(const EntryInKernel& entry) {
  if (entry.refusal != kHalSuccess) return MakeErrorCode(entry.refusal).message();
  std::string text;
  for (const auto& [name, state] : entry.objects) {
    if (!text.empty()) text += ", ";
    text += name + ' ' + ObjectStateText(state);
  }
  return text;
}

KernelComparison CompareWithKernel(const ServerContents& contents, const InterfaceNames& interfaces,
                                   const std::string& netns) {
  LinuxKernel kernel(netns);
  const KernelObjects present = kernel.Read();
  const std::map<std::string, std::uint32_t> mtus = kernel.Devices();
  std::set<std::string> devices;
  for (const auto& [name, mtu] : mtus) {
    if (present.devices.count(name) == 0) devices.insert(name);
  }
  KernelComparison comparison;
  Translation translation(interfaces, std::move(devices));
  for (const auto& [key, payload] : contents.entries) {
    comparison.entries[key].refusal = StoreEntry(key.first, key.second, payload, &translation);
  }

  const KernelObjects wanted = translation.Objects();
  comparison.objects = Compare(wanted, present, mtus);
  for (auto& [key, entry] : comparison.entries) {
    if (entry.refusal != kHalSuccess) continue;
    for (const std::string& name : ObjectsOf(key.first, key.second, wanted)) {
      entry.objects.emplace_back(name, comparison.objects.at(name));
    }
  }
  return comparison;
}

bool PrintCheck(const KernelComparison& comparison, std::ostream* out) {
  std::size_t refused = 0;
  for (const auto& [key, entry] : comparison.entries) {
    const std::string text = EntryText(entry);
    *out << HalKindName(key.first) << ' ' << key.second << ':' << (text.empty() ? "" : " ") << text
         << '\n';
    if (entry.refusal != kHalSuccess) ++refused;
  }
  std::size_t wrong = 0;
  for (const auto& [name, state] : comparison.objects) {
    if (state == ObjectState::kAsWanted) continue;
    *out << "WRONG: " << name << ' ' << ObjectStateText(state) << '\n';
    ++wrong;
  }
  *out << comparison.objects.size() << " objects, " << wrong << " wrong, " << refused
       << " entries that cannot be in the kernel\n";
  return wrong == 0 && refused == 0;
}

}  // namespace reference
