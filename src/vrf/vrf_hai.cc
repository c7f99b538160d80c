#include "zuskux/vrf_hai.h"

#include "hai/log.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "zuskux/hai.h"
#include "zuskux/vrf_encapsulation_message.h"

// The same as in vrf_encapsulation_message.cc, which exports it. This copy is only for inlining and
// is never emitted: a VRF request is so short that the call would count.
[[gnu::gnu_inline]] inline VrfEncapsulationMessage::VrfEncapsulationMessage()
    : AppMessage(nullptr) {
  set_message(&encap_);
}

namespace dest_mng {
namespace {

constexpr char kFile[] = "src/vrf/vrf_hai";

constexpr LogSite kInstallTrace{kFile, "InstallVrf", 23, kTraceLevel};
constexpr LogSite kDestroyTrace{kFile, "DestroyVrf", 32, kTraceLevel};

}  // namespace

int HaiL3MplsEncapsulationVrf::InstallVrf(const VrfData& data) {
  VrfEncapsulationMessage message;
  message.encap()->set_vrf_id(data.vrf_id);
  ZUSKUX_TRACE(kInstallTrace,
               "[TX ===>] hai:vrf:Install VRF=%u db_id=%u l3-ingress interface at HW", data.vrf_id,
               data.db_id);
  // Deliberately does not check for a missing client: one must be registered before any VRF.
  Hai::GetInstance()->client()->InstallVrfIngressInterface(&message);
  return 0;
}

int HaiL3MplsEncapsulationVrf::DestroyVrf(const VrfData& data) {
  VrfEncapsulationMessage message;
  message.encap()->set_vrf_id(data.vrf_id);
  ZUSKUX_TRACE(kDestroyTrace, "[TX ===>] hai:vrf:Delete VRF=%u db_id=%u l3-ingress interface at HW",
               data.vrf_id, data.db_id);
  // Deliberately does not check, as above.
  Hai::GetInstance()->client()->DestroyVrfIngressInterface(&message);
  return 0;
}

}  // namespace dest_mng
