#ifndef ZUSKUX_HAI_L3_MPLS_ENCAPSULATION_H_
#define ZUSKUX_HAI_L3_MPLS_ENCAPSULATION_H_

#include "zuskux/export.h"

namespace dest_mng {

/// The adapter for one kind of destination: programs destination objects into the HAL.
///
/// An adapter has no data; make one wherever you need it. Operations run on the caller's thread and
/// take no lock, so no other thread may use the same object meanwhile.
///
/// Each operation returns 0 whether or not the request was sent; its outcome arrives later at the
/// callback object. It throws `boost::bad_get` if an attribute of the object holds a type other
/// than the one that the translation reads. Exceptions from the HAL client propagate.
///
/// The order of the virtual operations is part of the binary interface.
class ZUSKUX_EXPORT HaiL3MplsEncapsulation {
 public:
  HaiL3MplsEncapsulation() = default;
  HaiL3MplsEncapsulation(const HaiL3MplsEncapsulation&) = delete;
  HaiL3MplsEncapsulation& operator=(const HaiL3MplsEncapsulation&) = delete;
  virtual ~HaiL3MplsEncapsulation();

  /// Asks the HAL to install the destination. `object` points to an object of exactly the kind's
  /// class; the caller keeps ownership. Reading a missing attribute adds an empty one to the
  /// object.
  virtual int CreateDestination(void* object) = 0;

  /// Asks the HAL to replace the destination. `object` is as for `CreateDestination`.
  virtual int UpdateDestination(void* object) = 0;

  /// Asks the HAL to remove the destination. `object` is as for `CreateDestination`. The request
  /// carries the whole translated destination.
  virtual int DeleteDestination(void* object) = 0;
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_L3_MPLS_ENCAPSULATION_H_
