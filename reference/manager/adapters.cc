#include "reference/manager/adapters.h"

#include <type_traits>

#include "interface_ids/interface_table.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/vrf_hai.h"

namespace reference {
namespace {

using dest_mng::EcmpData;
using dest_mng::HaiL3MplsEncapsulation;
using dest_mng::VrfData;

template <typename Object>
struct AdapterOf;
template <>
struct AdapterOf<dest_mng::DbVlanObject> : dest_mng::HaiL3MplsEncapsulationVlan {};
template <>
struct AdapterOf<dest_mng::DbHostObject> : dest_mng::HaiL3MplsEncapsulationHost {};
template <>
struct AdapterOf<dest_mng::DbMplsObject> : dest_mng::HaiL3MplsEncapsulationMpls {};

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
  void operator()(const VrfData& /*vrf*/) const {}
  void operator()(const EcmpData& ecmp) const {
    dest_mng::HaiL3MplsEncapsulationEcmp().DestroyEcmp(ecmp);
  }
  template <typename Object>
  void operator()(const std::unique_ptr<Object>& object) const {
    Call(&HaiL3MplsEncapsulation::DeleteDestination, object);
  }
};

}  // namespace

void SetInterfaces(const std::vector<SiteInterface>& interfaces) {
  auto& table = interface_ids::InterfaceTable::Global();
  table.Clear();
  for (const SiteInterface& interface : interfaces) {
    table.Set(interface.lim_id, {interface.name, interface.type, interface.ifindex});
  }
}

void SendInstall(Destination* destination) { std::visit(Install(), *destination); }

void SendReplace(Destination* destination) { std::visit(Replace(), *destination); }

void SendDestroy(Destination* destination) { std::visit(Destroy(), *destination); }

void SendDestroyVrf(const VrfData& vrf, std::uint32_t vrf_id) {
  dest_mng::HaiL3MplsEncapsulationVrf().DestroyVrf({vrf_id, vrf.db_id});
}

}  // namespace reference
