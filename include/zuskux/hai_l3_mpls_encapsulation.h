#ifndef ZUSKUX_HAI_L3_MPLS_ENCAPSULATION_H_
#define ZUSKUX_HAI_L3_MPLS_ENCAPSULATION_H_

#include "zuskux/export.h"

namespace dest_mng {

/// Adapter of one kind of destination: programs destination objects into the HAL.
///
/// An adapter has no data; make one wherever it is needed. Operations run on the caller's thread
/// and take no lock: no other thread may use the same object meanwhile.
///
/// Each operation returns 0 whether or not the request was sent; its outcome arrives later at the
/// callback object. It throws `boost::bad_get` when an attribute of the object holds another type
/// than the translation reads, and lets the HAL client's exceptions pass.
///
/// The order of the virtual operations is part of the binary interface.
class ZUSKUX_EXPORT HaiL3MplsEncapsulation {
 public:
  HaiL3MplsEncapsulation() = default;
  HaiL3MplsEncapsulation(const HaiL3MplsEncapsulation&) = delete;
  HaiL3MplsEncapsulation& operator=(const HaiL3MplsEncapsulation&) = delete;
  virtual ~HaiL3MplsEncapsulation();

  /// Asks the HAL to install the destination. `object` points at exactly the kind's object class
  /// and stays the caller's; reading an attribute that it lacks adds an empty one.
  virtual int CreateDestination(void* object) = 0;

  /// Asks the HAL to replace the destination; `object` as for `CreateDestination`.
  virtual int UpdateDestination(void* object) = 0;

  /// Asks the HAL to remove the destination; `object` as for `CreateDestination`. The request
  /// carries the whole translated destination.
  virtual int DeleteDestination(void* object) = 0;
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_L3_MPLS_ENCAPSULATION_H_
