#include "reference/server/kernel_check.h"

#include <map>
#include <ostream>
#include <set>
#include <utility>
#include <vector>

#include "reference/data_plane/comparison.h"
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

bool CheckKernel(const ServerContents& contents, const InterfaceNames& interfaces,
                 const std::string& netns, std::ostream* out) {
  LinuxKernel kernel(netns);
  const KernelObjects present = kernel.Read();
  const std::map<std::string, std::uint32_t> mtus = kernel.Devices();
  std::set<std::string> devices;
  for (const auto& [name, mtu] : mtus) {
    if (present.devices.count(name) == 0) devices.insert(name);
  }
  Translation translation(interfaces, std::move(devices));
  std::map<std::pair<HalKind, std::uint32_t>, HalReturnCode> refused;
  for (const auto& [key, payload] : contents.entries) {
    const HalReturnCode code = StoreEntry(key.first, key.second, payload, &translation);
    if (code != kHalSuccess) refused[key] = code;
  }

  const KernelObjects wanted = translation.Objects();
  ObjectStates states = Compare(wanted, present, mtus);
  for (const auto& [key, payload] : contents.entries) {
    *out << HalKindName(key.first) << ' ' << key.second << ':';
    const auto refusal = refused.find(key);
    if (refusal != refused.end()) *out << ' ' << MakeErrorCode(refusal->second).message();
    const char* separator = " ";
    for (const std::string& name : ObjectsOf(key.first, key.second, wanted)) {
      *out << std::exchange(separator, ", ") << name << ' ' << ObjectStateText(states.at(name));
    }
    *out << '\n';
  }
  std::size_t wrong = 0;
  for (const auto& [name, state] : states) {
    if (state == ObjectState::kAsWanted) continue;
    *out << "WRONG: " << name << ' ' << ObjectStateText(state) << '\n';
    ++wrong;
  }
  *out << states.size() << " objects, " << wrong << " wrong, " << refused.size()
       << " entries that cannot be in the kernel\n";
  return wrong == 0 && refused.empty();
}

}  // namespace reference
