#include "zuskux/hai_dest_ecmp.h"

#include <vector>

#include "hai/log.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/hai.h"

namespace dest_mng {
namespace {

constexpr char kFile[] = "src/dest_ecmp/hai/hai_dest_ecmp";

constexpr LogSite kInstallTrace{kFile, "InstallEcmp", 25, kTraceLevel};
constexpr LogSite kInstallNoClient{kFile, "InstallEcmp", 29, kErrorLevel};
constexpr LogSite kDestroyTrace{kFile, "DestroyEcmp", 36, kTraceLevel};
constexpr LogSite kDestroyNoClient{kFile, "DestroyEcmp", 40, kErrorLevel};

}  // namespace

void HaiL3MplsEncapsulationEcmp::InstallEcmp(const EcmpData& data) {
  const std::vector<unsigned int> members = data.NhopsDestId();
  EcmpEncapsulationMessage message;
  message.encap()->set_db_id(data.db_id);
  for (const unsigned int member : members) message.encap()->add_members(member);
  ZUSKUX_TRACE(kInstallTrace, "[TX ===>] hai:ecmp:Install ECMP=(db_id=%u)", data.db_id);
  if (Hai::GetInstance()->client() != nullptr) {
    Hai::GetInstance()->client()->InstallEcmpEncap(&message);
  } else {
    ZUSKUX_LOG(kInstallNoClient, "Hai has no HalL3MplsEncapsulationClient registered!!!");
  }
}

void HaiL3MplsEncapsulationEcmp::DestroyEcmp(const EcmpData& data) {
  // Deliberately omits the members, unlike the install.
  EcmpEncapsulationMessage message;
  message.encap()->set_db_id(data.db_id);
  ZUSKUX_TRACE(kDestroyTrace, "[TX ===>] hai:ecmp:Delete ECMP=(db_id=%u)", data.db_id);
  if (Hai::GetInstance()->client() != nullptr) {
    Hai::GetInstance()->client()->DestroyEcmpEncap(&message);
  } else {
    ZUSKUX_LOG(kDestroyNoClient, "Hai has no HalL3MplsEncapsulationClient registered!!!");
  }
}

}  // namespace dest_mng
