// The smallest host program: a destination manager with four objects, on the platform definitions
// in ../vendor_platform, and a HAL that answers every request with success. It installs the objects
// when the HAL server is found and exits when every request has been answered.
//
// A control plane already has objects, controllers with handlers, and a HAL client. main() shows
// what it adds to use zuskux.

#include <google/protobuf/message.h>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "app_framework/app_message.h"
#include "base_encap_message.pb.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/trace.h"
#include "dest_mng.pb.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"
#include "zuskux/dest_controllers.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/vrf_hai.h"

namespace {

/// Passes values from one thread to another.
template <typename T>
class Queue {
 public:
  void Put(T value) {
    {
      const std::lock_guard lock(mutex_);
      values_.push_back(std::move(value));
    }
    put_.notify_one();
  }

  /// Removes and returns the oldest value; blocks until there is one.
  T Take() {
    std::unique_lock lock(mutex_);
    put_.wait(lock, [this] { return !values_.empty(); });
    T value = std::move(values_.front());
    values_.pop_front();
    return value;
  }

 private:
  std::mutex mutex_;
  std::condition_variable put_;
  std::deque<T> values_;
};

// The controllers' handlers. They run on the HAL's thread and only pass the call on to the main
// thread.

struct Event {
  std::string handler;
  std::uint32_t db_id;
};

Queue<Event> events;

void Post(const char* handler, const msg_ctrl::MessageController& controller) {
  const google::protobuf::Message& record = *controller.message()->message();
  const auto* const db_id = record.GetDescriptor()->FindFieldByName("db_id");
  // A reinstall carries an empty record, whose id reads as 0.
  events.Put({handler, record.GetReflection()->GetUInt32(record, db_id)});
}

}  // namespace

namespace dest_mng {

void MessageControllerVlan::CreatedDestVlanSuccess() { Post("CreatedDestVlanSuccess", *this); }
void MessageControllerVlan::CreatedDestVlanError() { Post("CreatedDestVlanError", *this); }
void MessageControllerVlan::UpdatedDestVlanSuccess() { Post("UpdatedDestVlanSuccess", *this); }
void MessageControllerVlan::UpdatedDestVlanError() { Post("UpdatedDestVlanError", *this); }
void MessageControllerVlan::DeletedDestVlanSuccess() { Post("DeletedDestVlanSuccess", *this); }
void MessageControllerVlan::DeletedDestVlanError() { Post("DeletedDestVlanError", *this); }
void MessageControllerVlan::ReinstallDestVlan() { Post("ReinstallDestVlan", *this); }

void MessageControllerHost::CreatedDestHostSuccess() { Post("CreatedDestHostSuccess", *this); }
void MessageControllerHost::CreatedDestHostError() { Post("CreatedDestHostError", *this); }
void MessageControllerHost::UpdatedDestHostSuccess() { Post("UpdatedDestHostSuccess", *this); }
void MessageControllerHost::UpdatedDestHostError() { Post("UpdatedDestHostError", *this); }
void MessageControllerHost::DeletedDestHostSuccess() { Post("DeletedDestHostSuccess", *this); }
void MessageControllerHost::DeletedDestHostError() { Post("DeletedDestHostError", *this); }
void MessageControllerHost::ReinstallDestHost() { Post("ReinstallDestHost", *this); }

void MessageControllerEcmp::CreatedDestEcmpSuccess() { Post("CreatedDestEcmpSuccess", *this); }
void MessageControllerEcmp::CreatedDestEcmpError() { Post("CreatedDestEcmpError", *this); }
void MessageControllerEcmp::DeletedDestEcmpSuccess() { Post("DeletedDestEcmpSuccess", *this); }
void MessageControllerEcmp::DeletedDestEcmpError() { Post("DeletedDestEcmpError", *this); }
void MessageControllerEcmp::ReinstallDestEcmp() { Post("ReinstallDestEcmp", *this); }

void MessageControllerMpls::CreatedDestMplsSuccess() { Post("CreatedDestMplsSuccess", *this); }
void MessageControllerMpls::CreatedDestMplsError() { Post("CreatedDestMplsError", *this); }
void MessageControllerMpls::UpdatedDestMplsSuccess() { Post("UpdatedDestMplsSuccess", *this); }
void MessageControllerMpls::UpdatedDestMplsError() { Post("UpdatedDestMplsError", *this); }
void MessageControllerMpls::DeletedDestMplsSuccess() { Post("DeletedDestMplsSuccess", *this); }
void MessageControllerMpls::DeletedDestMplsError() { Post("DeletedDestMplsError", *this); }
void MessageControllerMpls::ReinstallDestMpls() { Post("ReinstallDestMpls", *this); }

void VrfController::ReinstallVrf() { Post("ReinstallVrf", *this); }

}  // namespace dest_mng

namespace {

/// A HAL client without a HAL: prints every request and, once the request has returned, reports
/// success on its own thread.
class AnsweringHal : public HalL3MplsEncapsulationClient {
 public:
  using Results = HalL3MplsEncapsulationClientCallbackItf;

  /// `results` is not owned and must outlive this object.
  explicit AnsweringHal(Results* results) : results_(results) {}

  /// Delivers the remaining reports, then returns.
  ~AnsweringHal() override {
    reports_.Put(nullptr);
    thread_.join();
  }

  /// There is one server, which is found at once.
  void OnServerFound(void (*report)(void* context)) {
    reports_.Put([report] { report(nullptr); });
  }

  ReturnCode InitEncapsulationModule() override { return ReturnCode{}; }

  // VRF requests have no result.
  ReturnCode InstallVrfIngressInterface(AppMessage* vrf) override {
    Show<encapsulation::VrfMessage>("install VRF", *vrf);
    return ReturnCode{};
  }
  ReturnCode DestroyVrfIngressInterface(AppMessage* vrf) override {
    Show<encapsulation::VrfMessage>("destroy VRF", *vrf);
    return ReturnCode{};
  }

  ReturnCode InstallVlanOutgoingEncapsulation(AppMessage* vlan) override {
    const auto& message = Show<encapsulation::VlanMessage>("install VLAN", *vlan);
    return Answer(&Results::InstallVlanOutgoingEncapsulationResCallback,
                  message.vlan_destination_id());
  }
  ReturnCode DestroyVlanOutgoingEncapsulation(AppMessage* vlan) override {
    const auto& message = Show<encapsulation::VlanMessage>("destroy VLAN", *vlan);
    return Answer(&Results::DestroyVlanOutgoingEncapsulationResCallback,
                  message.vlan_destination_id());
  }
  ReturnCode ReplaceVlanOutgoingEncapsulation(AppMessage* vlan) override {
    const auto& message = Show<encapsulation::VlanMessage>("replace VLAN", *vlan);
    return Answer(&Results::ReplaceVlanOutgoingEncapsulationResCallback,
                  message.vlan_destination_id());
  }

  ReturnCode InstallHostOutgoingEncapsulation(AppMessage* host) override {
    const auto& message = Show<encapsulation::HostMessage>("install host", *host);
    return Answer(&Results::InstallHostOutgoingEncapsulationResCallback, message.dest_id());
  }
  ReturnCode DestroyHostOutgoingEncapsulation(AppMessage* host) override {
    const auto& message = Show<encapsulation::HostMessage>("destroy host", *host);
    return Answer(&Results::DestroyHostOutgoingEncapsulationResCallback, message.dest_id());
  }
  ReturnCode ReplaceHostOutgoingEncapsulation(AppMessage* host) override {
    const auto& message = Show<encapsulation::HostMessage>("replace host", *host);
    return Answer(&Results::ReplaceHostOutgoingEncapsulationResCallback, message.dest_id());
  }

  ReturnCode InstallEcmpEncap(AppMessage* ecmp) override {
    const auto& message = Show<encapsulation::EcmpMessage>("install ECMP", *ecmp);
    return Answer(&Results::InstallEcmpEncapResCallback, message.db_id());
  }
  ReturnCode DestroyEcmpEncap(AppMessage* ecmp) override {
    const auto& message = Show<encapsulation::EcmpMessage>("destroy ECMP", *ecmp);
    return Answer(&Results::DestroyEcmpEncapResCallback, message.db_id());
  }

  // An MPLS result carries a second id.
  ReturnCode InstallMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) override {
    const auto& message = Show<encapsulation::MplsMessage>("install MPLS", *mpls);
    return Answer(&Results::InstallMplsUnprotectedOutgoingEncapsulationResCallback,
                  message.dest_id(), message.pass_through_value());
  }
  ReturnCode DestroyMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) override {
    const auto& message = Show<encapsulation::MplsMessage>("destroy MPLS", *mpls);
    return Answer(&Results::DestroyMplsUnprotectedOutgoingEncapsulationResCallback,
                  message.dest_id(), message.pass_through_value());
  }
  ReturnCode ReplaceMplsUnprotectedOutgoingEncapsulation(AppMessage* mpls) override {
    const auto& message = Show<encapsulation::MplsMessage>("replace MPLS", *mpls);
    return Answer(&Results::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback,
                  message.dest_id(), message.pass_through_value());
  }

 private:
  // The message is gone once the request has returned: a real client serialises it here.
  template <typename Message>
  const Message& Show(const char* operation, const AppMessage& request) {
    const auto& message = static_cast<const Message&>(*request.message());
    std::cout << "  HAL: " << operation << ' ' << message.ShortDebugString() << '\n';
    return message;
  }

  template <typename Result, typename... Id>
  ReturnCode Answer(Result result, Id... ids) {
    reports_.Put([this, result, ids...] { (results_->*result)(ReturnCode{}, ids...); });
    return ReturnCode{};
  }

  Results* const results_;
  Queue<std::function<void()>> reports_;
  std::thread thread_{[this] {
    while (const auto report = reports_.Take()) report();
  }};
};

// Four bytes in host byte order.
std::string LimId(std::uint32_t id) {
  std::string bytes(sizeof id, '\0');
  std::memcpy(bytes.data(), &id, sizeof id);
  return bytes;
}

// Six bytes in transmission order. Zero bytes are not special.
std::string Mac(const std::array<std::uint8_t, 6>& bytes) { return {bytes.begin(), bytes.end()}; }

dest_mng::DbVlanObject Uplink() {
  auto record = std::make_unique<dest_mng::DestVlanMessage>();
  record->set_vlan_dest_id(10);
  record->set_lim_id(LimId(7));
  record->set_source_mac(Mac({0x02, 0x11, 0x22, 0x33, 0x44, 0x55}));
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
  record->set_dest_mac(Mac({0x02, 0x66, 0x77, 0x88, 0x99, 0xaa}));
  dest_mng::DbHostObject host;
  host.record = std::move(record);
  host.attributes["vlan_dest_id"] = db::Attribute(10);
  return host;
}

}  // namespace

int main(int argc, char** argv) {
  if (zlog_init(argc > 1 ? argv[1] : ZLOG_CONF) != 0) {
    std::cerr << "host: cannot read the log configuration " << (argc > 1 ? argv[1] : ZLOG_CONF)
              << '\n';
    return 1;
  }
  g_trace = zlog_get_category("zuskux");

  const dest_mng::VrfData vrf{1, 101};
  dest_mng::DbVlanObject uplink = Uplink();
  dest_mng::DbHostObject neighbor = Neighbor();
  dest_mng::EcmpData group;
  group.db_id = 30;
  group.nhops = {10, 20};

  dest_mng::Hai* const hai = dest_mng::Hai::GetInstance();
  {
    AnsweringHal hal(hai->hal_encap_callback());
    hai->set_client(&hal);
    hal.OnServerFound(&dest_mng::HaiDestClientCallback::HalServerFoundCallback);

    for (int answers = 0; answers < 3;) {
      const Event event = events.Take();
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
