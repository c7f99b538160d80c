// The interfaces of the HAL client library. Your client derives from the first and is registered
// with `Hai::set_client`; it belongs to the host program, not here.

#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"

// Each request of a client runs on the destination manager's thread. It must copy or serialise what
// it keeps of the message, which is gone when it returns, must not report its result before it
// returned, and may throw: the exception passes through the library to the destination manager.
HalL3MplsEncapsulationClient::~HalL3MplsEncapsulationClient() = default;

// The library implements the results; the client calls them on a thread of its choice, one at a
// time, and gets the exceptions of the host's handlers.
HalL3MplsEncapsulationClientCallbackItf::~HalL3MplsEncapsulationClientCallbackItf() = default;
