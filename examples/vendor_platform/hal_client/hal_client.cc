// The interfaces of the HAL client library. Your client derives from the first one and is
// registered with `Hai::set_client`; it belongs in the host program, not here.

#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"

// A client's requests run on the destination manager's thread. A request must copy or serialise
// what it keeps of the message, which is gone once the request returns, and must not report its
// result before it has returned. It may throw: the exception propagates through the library to the
// destination manager.
HalL3MplsEncapsulationClient::~HalL3MplsEncapsulationClient() = default;

// The library implements the results. The client calls them on a thread of its choice, one at a
// time, and receives the exceptions of the host's handlers.
HalL3MplsEncapsulationClientCallbackItf::~HalL3MplsEncapsulationClientCallbackItf() = default;
