#ifndef ZUSKUX_HAI_SEND_TO_HAL_H_
#define ZUSKUX_HAI_SEND_TO_HAL_H_

#include "hai/log.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "zuskux/hai.h"

namespace dest_mng {

using ClientOperation =
    HalL3MplsEncapsulationReturnCode (HalL3MplsEncapsulationClient::*)(AppMessage*);

/// Calls `operation` of the registered HAL client with `message`. Without a client, logs that at
/// `no_client`.
inline void SendToHal(ClientOperation operation, AppMessage* message, const LogSite& no_client) {
  if (Hai::GetInstance()->client() == nullptr) {
    ZUSKUX_LOG(no_client, "There is no HAL client available");
    return;
  }
  (Hai::GetInstance()->client()->*operation)(message);
}

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_SEND_TO_HAL_H_
