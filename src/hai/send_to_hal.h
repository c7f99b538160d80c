#ifndef ZUSKUX_HAI_SEND_TO_HAL_H_
#define ZUSKUX_HAI_SEND_TO_HAL_H_

#include "hai/log.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "zuskux/hai.h"

namespace dest_mng {

using ClientOperation =
    HalL3MplsEncapsulationReturnCode (HalL3MplsEncapsulationClient::*)(AppMessage*);

// Out of line, because the call's many arguments would lengthen each request.
[[gnu::noinline, gnu::cold]] inline void LogMissingClient(const LogSite& site) {
  ZUSKUX_LOG(site, "There is no HAL client available");
}

/// Calls `operation` of the registered HAL client with `message`. Without a client, logs that at
/// `no_client`.
inline void SendToHal(ClientOperation operation, AppMessage* message, const LogSite& no_client) {
  if (Hai::GetInstance()->client() == nullptr) {
    LogMissingClient(no_client);
    return;
  }
  (Hai::GetInstance()->client()->*operation)(message);
}

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_SEND_TO_HAL_H_
