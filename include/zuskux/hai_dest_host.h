#ifndef ZUSKUX_HAI_DEST_HOST_H_
#define ZUSKUX_HAI_DEST_HOST_H_

#include "base_encap_message.pb.h"
#include "dest_mng.pb.h"
#include "zuskux/export.h"
#include "zuskux/hai_l3_mpls_encapsulation.h"
#include "zuskux/host_encapsulation_message.h"

namespace dest_mng {

/// Programs host (next hop) destinations into the HAL; objects are `DbHostObject`s.
class ZUSKUX_EXPORT HaiL3MplsEncapsulationHost : public HaiL3MplsEncapsulation {
 public:
  HaiL3MplsEncapsulationHost();
  ~HaiL3MplsEncapsulationHost() override;

  int CreateDestination(void* object) override;
  int UpdateDestination(void* object) override;
  int DeleteDestination(void* object) override;

  /// The translation of the `DbHostObject` at `object`, wrapped. Throws as
  /// `TranslateHostObjectToEncapMessage` does; the message under construction is then lost.
  HostEncapsulationMessage TranslateMessage(void* object);

  /// Fills the empty `message` from the `DbHostObject` at `object`: its record and the attribute
  /// "vlan_dest_id". Byte fields are copied whole, whatever their length. An object without the
  /// attribute gains an empty one. Throws `boost::bad_get` when the attribute is present and not an
  /// integer; `message` is then partly filled.
  void TranslateHostObjectToEncapMessage(void* object, encapsulation::HostMessage* message);

  /// The HAL's value for `flag`; 0 for a value it does not know.
  encapsulation::ActionFlags TranslateActionFlagsToEncapFlags(ActionFlags flag);
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_DEST_HOST_H_
