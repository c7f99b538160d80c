#ifndef ZUSKUX_HAI_DEST_MPLS_H_
#define ZUSKUX_HAI_DEST_MPLS_H_

#include "base_encap_message.pb.h"
#include "dest_mng.pb.h"
#include "zuskux/export.h"
#include "zuskux/hai_l3_mpls_encapsulation.h"
#include "zuskux/mpls_encapsulation_message.h"

namespace dest_mng {

/// Programs MPLS destinations into the HAL; objects are `DbMplsObject`s.
class ZUSKUX_EXPORT HaiL3MplsEncapsulationMpls : public HaiL3MplsEncapsulation {
 public:
  HaiL3MplsEncapsulationMpls();
  ~HaiL3MplsEncapsulationMpls() override;

  int CreateDestination(void* object) override;
  int UpdateDestination(void* object) override;
  int DeleteDestination(void* object) override;

  /// The translation of the `DbMplsObject` at `object`, wrapped. Throws as
  /// `TranslateMplsObjectToEncapMessage` does; the message under construction is then lost.
  MplsEncapsulationMessage TranslateMessage(void* object);

  /// Fills the empty `message` from the `DbMplsObject` at `object`: its record and the attributes
  /// "vlan_dest_id" (not for a virtual circuit) and "host_dest_id". Without an active neighbour,
  /// that is with "host_dest_id" 0, the message carries the drop flag. Byte fields are copied
  /// whole, whatever their length. An object without an attribute that is read gains an empty one.
  /// Throws `boost::bad_get` when such an attribute is present and not an integer; `message` is
  /// then partly filled.
  void TranslateMplsObjectToEncapMessage(void* object, encapsulation::MplsMessage* message);

  /// The HAL's value for `capability`; "Forward" for a value it does not know.
  encapsulation::MplsCapabilities TranslateMplsCapabilityToEncapCapability(
      MplsCapabilities capability);
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_DEST_MPLS_H_
