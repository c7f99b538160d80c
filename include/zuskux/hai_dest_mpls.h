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

  /// Translates the `DbMplsObject` at `object` and wraps the result. Throws as
  /// `TranslateMplsObjectToEncapMessage` does; the message under construction then leaks.
  MplsEncapsulationMessage TranslateMessage(void* object);

  /// Fills the empty `message` from the record of the `DbMplsObject` at `object` and its attributes
  /// "vlan_dest_id" (not for a virtual circuit) and "host_dest_id". A "host_dest_id" of 0 means
  /// that there is no active neighbour; the message then carries the drop flag. Copies byte fields
  /// whole, whatever their length. Adds an empty attribute for each one that it reads and the
  /// object lacks. Throws `boost::bad_get` if such an attribute is present but not an integer;
  /// `message` is then partly filled.
  void TranslateMplsObjectToEncapMessage(void* object, encapsulation::MplsMessage* message);

  /// The HAL's value for `capability`; "Forward" for an unknown value.
  encapsulation::MplsCapabilities TranslateMplsCapabilityToEncapCapability(
      MplsCapabilities capability);
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_DEST_MPLS_H_
