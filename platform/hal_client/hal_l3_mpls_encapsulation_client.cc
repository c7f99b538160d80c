#include "hal_client/hal_l3_mpls_encapsulation_client.h"

HalL3MplsEncapsulationClient::~HalL3MplsEncapsulationClient() = default;
