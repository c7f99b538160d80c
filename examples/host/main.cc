// The smallest destination manager: installs one object of four kinds whenever the HAL server is
// found, and ends when the HAL has answered all that have a result.

#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "dest_manager/db_objects.h"
#include "dest_manager/trace.h"
#include "dest_mng.pb.h"
#include "events.h"
#include "platform/hal_client.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/vrf_hai.h"

namespace {

// Four bytes in host byte order.
std::string LimId(std::uint32_t id) {
  std::string bytes(sizeof id, '\0');
  std::memcpy(bytes.data(), &id, sizeof id);
  return bytes;
}

dest_mng::DbVlanObject Uplink() {
  auto record = std::make_unique<dest_mng::DestVlanMessage>();
  record->set_vlan_dest_id(10);
  record->set_lim_id(LimId(7));
  record->set_source_mac("\x02\x11\x22\x33\x44\x55");
  record->set_mtu(1500);
  dest_mng::DbVlanObject vlan;
  vlan.record = std::move(record);
  vlan.list_attribute_name = "interfaces";
  return vlan;
}

dest_mng::DbHostObject Neighbor() {
  auto record = std::make_unique<dest_mng::DestHostMessage>();
  record->set_dest_id(20);
  record->set_lim_id(LimId(7));
  record->set_dest_mac("\x02\x66\x77\x88\x99\xaa");
  dest_mng::DbHostObject host;
  host.record = std::move(record);
  host.attributes["vlan_dest_id"] = db::Attribute(10);
  return host;
}

}  // namespace

int main(int argc, char** argv) {
  if (zlog_init(argc > 1 ? argv[1] : ZLOG_CONF) != 0) return 1;
  g_trace = zlog_get_category("zuskux");

  const dest_mng::VrfData vrf{1, 101};
  dest_mng::DbVlanObject uplink = Uplink();
  dest_mng::DbHostObject neighbor = Neighbor();
  dest_mng::EcmpData group;
  group.db_id = 30;
  group.nhops = {10, 20};

  dest_mng::Hai* const hai = dest_mng::Hai::GetInstance();
  {
    host::AnsweringHal hal(hai->hal_encap_callback());
    hai->set_client(&hal);
    hal.OnServerFound(&dest_mng::HaiDestClientCallback::HalServerFoundCallback);

    for (int answers = 0; answers < 3;) {
      const host::Event event = host::NextEvent();
      std::cout << event.handler << ' ' << event.db_id << '\n';
      if (event.handler == "ReinstallVrf") {
        dest_mng::HaiL3MplsEncapsulationVrf().InstallVrf(vrf);
      } else if (event.handler == "ReinstallDestVlan") {
        dest_mng::HaiL3MplsEncapsulationVlan().CreateDestination(&uplink);
      } else if (event.handler == "ReinstallDestHost") {
        dest_mng::HaiL3MplsEncapsulationHost().CreateDestination(&neighbor);
      } else if (event.handler == "ReinstallDestEcmp") {
        dest_mng::HaiL3MplsEncapsulationEcmp().InstallEcmp(group);
      } else if (event.handler.rfind("Created", 0) == 0) {
        ++answers;
      }
    }
    hai->set_client(nullptr);
  }
  std::cout << "every request is answered\n";
  g_trace = nullptr;
  zlog_fini();
}
