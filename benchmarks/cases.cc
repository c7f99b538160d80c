#include "benchmarks/cases.h"

#include <zlog.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "benchmarks/floors.h"
#include "benchmarks/objects.h"
#include "interface_ids/interface_table.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"
#include "zuskux/vrf_hai.h"

namespace {

std::size_t allocations = 0;
int traced = 0;

}  // namespace

// Replaced in order to count allocations.
void* operator new(std::size_t size) {
  ++allocations;
  if (void* const pointer = std::malloc(size)) return pointer;
  throw std::bad_alloc();
}
void operator delete(void* pointer) noexcept { std::free(pointer); }
void operator delete(void* pointer, std::size_t /*size*/) noexcept { std::free(pointer); }

// A log that drops its text, so that only the library's share of the logging cost counts.
int zlog_level_enabled(zlog_category_t* /*category*/, const int /*level*/) { return traced; }
void zlog(zlog_category_t* /*category*/, const char* /*file*/, size_t /*filelen*/,
          const char* /*func*/, size_t /*funclen*/, long /*line*/, int /*level*/,
          const char* /*format*/, ...) {}

namespace bench {
namespace {

using dest_mng::Hai;

// Keeps the compiler from optimising `value` away.
template <typename T>
void Keep(const T& value) {
  asm volatile("" : : "r"(&value) : "memory");
}

std::unique_ptr<encapsulation::VlanMessage> TranslatedVlan() {
  auto object = MakeVlan();
  auto message = std::make_unique<encapsulation::VlanMessage>();
  dest_mng::HaiL3MplsEncapsulationVlan().TranslateVlanObjectToEncapMessage(&object, message.get());
  return message;
}

class Cases {
 public:
  Cases() {
    Hai::GetInstance()->set_client(&IdleClient());
    // The id in the objects' lim_id.
    interface_ids::InterfaceTable::Global().Set(0x01000001, {"eth3", 2, 0x01000103});
    Add("empty", [] {});
    AddRequests();
    AddRenderings();
    AddResults();
  }

  const std::vector<Case>& all() const { return cases_; }

 private:
  void Add(std::string name, std::function<void()> run, bool with_trace = false) {
    cases_.push_back({std::move(name), with_trace, std::move(run)});
  }

  // A request with tracing off and on, and its floor.
  void AddRequest(const std::string& kind, const std::function<void()>& library,
                  const std::function<void()>& floor) {
    Add("request/" + kind + "/library", library);
    Add("request/" + kind + "/floor", floor);
    Add("traced/" + kind + "/library", library, true);
  }

  void AddRequests() {
    AddRequest(
        "vlan", [this] { vlan_adapter_.CreateDestination(&vlan_); }, [this] { FloorVlan(&vlan_); });
    AddRequest(
        "host", [this] { host_adapter_.CreateDestination(&host_); }, [this] { FloorHost(&host_); });
    AddRequest(
        "mpls", [this] { mpls_adapter_.CreateDestination(&mpls_); }, [this] { FloorMpls(&mpls_); });
    AddRequest(
        "ecmp", [this] { ecmp_adapter_.InstallEcmp(ecmp_); }, [this] { FloorEcmp(ecmp_); });
    AddRequest(
        "vrf", [this] { vrf_adapter_.InstallVrf(vrf_); }, [this] { FloorVrf(vrf_); });
  }

  template <typename Message, typename Wrapper>
  void AddRendering(const std::string& kind, const Wrapper& wrapper) {
    const auto& message = static_cast<const Message&>(*wrapper.message());
    Add("render/" + kind + "/library", [&wrapper] { Keep(wrapper.ToString(true)); });
    Add("render/" + kind + "/floor", [&] {
      if constexpr (std::is_same_v<Message, encapsulation::VrfMessage>) {
        Keep(FloorRender(message));
      } else {
        Keep(FloorRender(message, wrapper));
      }
    });
    Add("render/" + kind + "/short-debug-string", [&message] { Keep(message.ShortDebugString()); });
    Add("render-short/" + kind + "/library", [&wrapper] { Keep(wrapper.ToString(false)); });
  }

  void AddRenderings() {
    ecmp_wrapper_.encap()->set_db_id(301);
    for (const std::uint32_t member : {101U, 102U, 103U, 104U}) {
      ecmp_wrapper_.encap()->add_members(member);
    }
    vrf_wrapper_.encap()->set_vrf_id(5);
    AddRendering<encapsulation::VlanMessage>("vlan", vlan_wrapper_);
    AddRendering<encapsulation::HostMessage>("host", host_wrapper_);
    AddRendering<encapsulation::MplsMessage>("mpls", mpls_wrapper_);
    AddRendering<encapsulation::EcmpMessage>("ecmp", ecmp_wrapper_);
    AddRendering<encapsulation::VrfMessage>("vrf", vrf_wrapper_);
  }

  void AddResult(const std::string& operation, std::function<void()> library,
                 std::function<void()> floor) {
    Add("result/" + operation + "/library", std::move(library));
    Add("result/" + operation + "/floor", std::move(floor));
  }

  void AddResults() {
    const auto one_id = [this](const std::string& operation,
                               void (HalL3MplsEncapsulationClientCallbackItf::*result)(
                                   HalL3MplsEncapsulationReturnCode, unsigned int),
                               void (*floor)(unsigned int)) {
      AddResult(
          operation, [this, result] { (results_->*result)({}, 12); }, [floor] { floor(12); });
    };
    const auto two_ids = [this](const std::string& operation,
                                void (HalL3MplsEncapsulationClientCallbackItf::*result)(
                                    HalL3MplsEncapsulationReturnCode, unsigned int, unsigned int)) {
      AddResult(
          operation, [this, result] { (results_->*result)({}, 201, 7); },
          [] { FloorMplsResult(201, 7); });
    };
    using Itf = HalL3MplsEncapsulationClientCallbackItf;
    one_id("install-vlan", &Itf::InstallVlanOutgoingEncapsulationResCallback, FloorVlanResult);
    one_id("replace-vlan", &Itf::ReplaceVlanOutgoingEncapsulationResCallback, FloorVlanResult);
    one_id("destroy-vlan", &Itf::DestroyVlanOutgoingEncapsulationResCallback, FloorVlanResult);
    one_id("install-host", &Itf::InstallHostOutgoingEncapsulationResCallback, FloorHostResult);
    one_id("replace-host", &Itf::ReplaceHostOutgoingEncapsulationResCallback, FloorHostResult);
    one_id("destroy-host", &Itf::DestroyHostOutgoingEncapsulationResCallback, FloorHostResult);
    one_id("install-ecmp", &Itf::InstallEcmpEncapResCallback, FloorEcmpResult);
    one_id("destroy-ecmp", &Itf::DestroyEcmpEncapResCallback, FloorEcmpResult);
    two_ids("install-mpls", &Itf::InstallMplsUnprotectedOutgoingEncapsulationResCallback);
    two_ids("replace-mpls", &Itf::ReplaceMplsUnprotectedOutgoingEncapsulationResCallback);
    two_ids("destroy-mpls", &Itf::DestroyMplsUnprotectedOutgoingEncapsulationResCallback);
  }

  dest_mng::DbVlanObject vlan_ = MakeVlan();
  dest_mng::DbHostObject host_ = MakeHost();
  dest_mng::DbMplsObject mpls_ = MakeMpls();
  dest_mng::EcmpData ecmp_ = MakeEcmp();
  dest_mng::VrfData vrf_{5, 6};
  dest_mng::HaiL3MplsEncapsulationVlan vlan_adapter_;
  dest_mng::HaiL3MplsEncapsulationHost host_adapter_;
  dest_mng::HaiL3MplsEncapsulationMpls mpls_adapter_;
  dest_mng::HaiL3MplsEncapsulationEcmp ecmp_adapter_;
  dest_mng::HaiL3MplsEncapsulationVrf vrf_adapter_;
  VlanEncapsulationMessage vlan_wrapper_{TranslatedVlan()};
  HostEncapsulationMessage host_wrapper_ = host_adapter_.TranslateMessage(&host_);
  MplsEncapsulationMessage mpls_wrapper_ = mpls_adapter_.TranslateMessage(&mpls_);
  EcmpEncapsulationMessage ecmp_wrapper_;
  VrfEncapsulationMessage vrf_wrapper_;
  HalL3MplsEncapsulationClientCallbackItf* results_ = Hai::GetInstance()->hal_encap_callback();
  std::vector<Case> cases_;
};

}  // namespace

const std::vector<Case>& AllCases() {
  static const Cases cases;
  return cases.all();
}

void Prepare(const Case& one) {
  traced = one.traced ? 1 : 0;
  for (int run = 0; run < 3; ++run) one.run();
}

std::size_t Allocations() { return allocations; }

}  // namespace bench
