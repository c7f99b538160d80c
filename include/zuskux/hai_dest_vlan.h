#ifndef ZUSKUX_HAI_DEST_VLAN_H_
#define ZUSKUX_HAI_DEST_VLAN_H_

#include "base_encap_message.pb.h"
#include "dest_mng.pb.h"
#include "zuskux/export.h"
#include "zuskux/hai_l3_mpls_encapsulation.h"

namespace dest_mng {

/// Programs VLAN destinations into the HAL; objects are `DbVlanObject`s.
class ZUSKUX_EXPORT HaiL3MplsEncapsulationVlan : public HaiL3MplsEncapsulation {
 public:
  HaiL3MplsEncapsulationVlan();
  ~HaiL3MplsEncapsulationVlan() override;

  int CreateDestination(void* object) override;
  int UpdateDestination(void* object) override;
  int DeleteDestination(void* object) override;

  /// Fills the empty `message` from the `DbVlanObject` at `object`: scalars and capabilities from
  /// its record, `list_values` from its list attribute. Copies byte fields whole, whatever their
  /// length. Adds an empty list attribute if the object lacks it. Throws `boost::bad_get` if a
  /// present value of the list is not a string; `message` is then partly filled.
  void TranslateVlanObjectToEncapMessage(void* object, encapsulation::VlanMessage* message);

  /// The HAL's value for `capability`; 0 for an unknown value.
  encapsulation::VlanCapabilities TranslateVlanCapabilityToEncapCapability(
      VlanCapabilities capability);
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_DEST_VLAN_H_
