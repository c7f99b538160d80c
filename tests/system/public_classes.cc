// Every class whose layout or virtual table is part of the binary interface; public_classes_test.py
// describes them from the debug information.

#include "app_framework/app_message.h"
#include "app_framework/message_controller.h"
#include "app_framework/strategy.h"
#include "dest_manager/attribute.h"
#include "dest_manager/db_objects.h"
#include "dest_manager/ecmp_data.h"
#include "dest_manager/vrf_data.h"
#include "hal_client/hal_l3_mpls_encapsulation_client.h"
#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"
#include "hal_client/hal_l3_mpls_encapsulation_printable.h"
#include "interface_ids/mac_addr.h"
#include "zuskux/dest_app_messages.h"
#include "zuskux/dest_controllers.h"
#include "zuskux/ecmp_encapsulation_message.h"
#include "zuskux/hai.h"
#include "zuskux/hai_callback.h"
#include "zuskux/hai_dest_ecmp.h"
#include "zuskux/hai_dest_host.h"
#include "zuskux/hai_dest_mpls.h"
#include "zuskux/hai_dest_vlan.h"
#include "zuskux/hai_l3_mpls_encapsulation.h"
#include "zuskux/host_encapsulation_message.h"
#include "zuskux/mpls_encapsulation_message.h"
#include "zuskux/vlan_encapsulation_message.h"
#include "zuskux/vrf_encapsulation_message.h"
#include "zuskux/vrf_hai.h"

// Never called: its parameters are the classes.
extern "C" ZUSKUX_EXPORT void PublicClasses(
    // The library's.
    dest_mng::Hai*, dest_mng::HaiDestClientCallback*, dest_mng::HaiL3MplsEncapsulation*,
    dest_mng::HaiL3MplsEncapsulationVlan*, dest_mng::HaiL3MplsEncapsulationHost*,
    dest_mng::HaiL3MplsEncapsulationMpls*, dest_mng::HaiL3MplsEncapsulationEcmp*,
    dest_mng::HaiL3MplsEncapsulationVrf*, VlanEncapsulationMessage*, HostEncapsulationMessage*,
    MplsEncapsulationMessage*, EcmpEncapsulationMessage*, VrfEncapsulationMessage*,
    dest_mng::AppDestMessage*, dest_mng::AppDestVlanMessage*, dest_mng::AppDestHostMessage*,
    dest_mng::AppDestEcmpMessage*, dest_mng::AppDestMplsMessage*, dest_mng::AppVrfMessage*,
    dest_mng::MessageControllerVlan*, dest_mng::MessageControllerHost*,
    dest_mng::MessageControllerEcmp*, dest_mng::MessageControllerMpls*, dest_mng::VrfController*,
    // The platform's.
    AppMessage*, msg_ctrl::MessageController*, app_strategy::Strategy*,
    HalL3MplsEncapsulationClient*, HalL3MplsEncapsulationClientCallbackItf*,
    HalL3MplsEncapsulationPrintable*, db::Attribute*, dest_mng::DbObject*, dest_mng::DbVlanObject*,
    dest_mng::DbHostObject*, dest_mng::DbMplsObject*, dest_mng::EcmpData*, dest_mng::VrfData*,
    nettypes::MACAddr*) {}
