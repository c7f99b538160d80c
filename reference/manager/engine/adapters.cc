#include "reference/manager/engine/adapters.h"

#include "interface_ids/interface_table.h"
#include "reference/hal/kinds.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/vrf_hai.h"

namespace reference {
namespace {

using dest_mng::EcmpData;
using dest_mng::HaiL3MplsEncapsulation;
using dest_mng::VrfData;

using Operation = int (HaiL3MplsEncapsulation::*)(void*);

template <typename Object>
void Call(Operation operation, const std::unique_ptr<Object>& object) {
  AdapterOf<Object> adapter;
  (static_cast<HaiL3MplsEncapsulation&>(adapter).*operation)(object.get());
}

struct Install {
  void operator()(const VrfData& vrf) const {
    dest_mng::HaiL3MplsEncapsulationVrf().InstallVrf(vrf);
  }
  void operator()(const EcmpData& ecmp) const {
    dest_mng::HaiL3MplsEncapsulationEcmp().InstallEcmp(ecmp);
  }
  template <typename Object>
  void operator()(const std::unique_ptr<Object>& object) const {
    Call(&HaiL3MplsEncapsulation::CreateDestination, object);
  }
};

struct Replace {
  void operator()(const VrfData& /*vrf*/) const {}
  void operator()(const EcmpData& ecmp) const {
    dest_mng::HaiL3MplsEncapsulationEcmp().InstallEcmp(ecmp);
  }
  template <typename Object>
  void operator()(const std::unique_ptr<Object>& object) const {
    Call(&HaiL3MplsEncapsulation::UpdateDestination, object);
  }
};

struct Destroy {
  void operator()(const VrfData& vrf) const {
    dest_mng::HaiL3MplsEncapsulationVrf().DestroyVrf(vrf);
  }
  void operator()(const EcmpData& ecmp) const {
    dest_mng::HaiL3MplsEncapsulationEcmp().DestroyEcmp(ecmp);
  }
  template <typename Object>
  void operator()(const std::unique_ptr<Object>& object) const {
    Call(&HaiL3MplsEncapsulation::DeleteDestination, object);
  }
};

// The adapters for these two kinds fill the message only while sending it.

void Translate(const VrfData& vrf, encapsulation::VrfMessage* message) {
  message->set_vrf_id(vrf.vrf_id);
}

void Translate(const EcmpData& ecmp, encapsulation::EcmpMessage* message) {
  message->set_db_id(ecmp.db_id);
  for (const std::uint32_t member : ecmp.nhops) message->add_members(member);
}

template <typename Object, typename Message>
void Translate(const std::unique_ptr<Object>& object, Message* message) {
  (AdapterOf<Object>().*AdapterOf<Object>::kTranslate)(object.get(), message);
}

}  // namespace

void SetInterfaces(const std::vector<SiteInterface>& interfaces) {
  auto& table = interface_ids::InterfaceTable::Global();
  table.Clear();
  for (const SiteInterface& interface : interfaces) {
    table.Set(interface.lim_id, {interface.name, interface.type, interface.ifindex});
  }
}

void SendInstall(HaiObject* object) { std::visit(Install(), *object); }

void SendReplace(HaiObject* object) { std::visit(Replace(), *object); }

void SendDestroy(HaiObject* object) { std::visit(Destroy(), *object); }

HalMessage TranslateForHal(const HaiObject& object) {
  return VisitKind(KindOf(object), [&object](auto row) -> HalMessage {
    using Kind = decltype(row);
    typename Kind::Message message;
    Translate(std::get<static_cast<std::size_t>(Kind::kKind)>(object), &message);
    return {Kind::Id(message).value_or(0), message.SerializeAsString()};
  });
}

}  // namespace reference
