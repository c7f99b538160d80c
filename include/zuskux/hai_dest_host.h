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

  /// Translates the `DbHostObject` at `object` and wraps the result. Throws as
  /// `TranslateHostObjectToEncapMessage` does; the message under construction then leaks.
  HostEncapsulationMessage TranslateMessage(void* object);

  /// Fills the empty `message` from the record of the `DbHostObject` at `object` and its attribute
  /// "vlan_dest_id". Copies byte fields whole, whatever their length. Adds an empty attribute if
  /// the object lacks it. Throws `boost::bad_get` if the attribute is present but not an integer;
  /// `message` is then partly filled.
  void TranslateHostObjectToEncapMessage(void* object, encapsulation::HostMessage* message);

  /// The HAL's value for `flag`; 0 for an unknown value.
  encapsulation::ActionFlags TranslateActionFlagsToEncapFlags(ActionFlags flag);
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_DEST_HOST_H_
