#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"

HalL3MplsEncapsulationClientCallbackItf::~HalL3MplsEncapsulationClientCallbackItf() = default;
