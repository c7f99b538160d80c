#ifndef ZUSKUX_REFERENCE_HAL_REQUEST_OBSERVER_H_
#define ZUSKUX_REFERENCE_HAL_REQUEST_OBSERVER_H_

#include <cstdint>
#include <string_view>

#include "reference/hal/hal_object_state.h"
#include "reference/hal/hal_request.h"

namespace reference {

/// Sees every request to a HAL connection or a HAL server, and every answer. The connection or
/// server does not own its observer, and calls it on any thread, possibly on several at once. Must
/// not throw.
class RequestObserver {
 public:
  RequestObserver() = default;
  RequestObserver(const RequestObserver&) = delete;
  RequestObserver& operator=(const RequestObserver&) = delete;
  virtual ~RequestObserver() = default;

  /// A request, before it is sent or refused. `wrapper` is the address of the printable message
  /// that carried it, or null; it is not dereferenced. Returns the request's number for `Result`,
  /// never 0.
  virtual std::uint64_t Request(const HalRequest& request, const void* wrapper) = 0;

  /// The result of the request with that number, before it is reported. `reason` is the HAL's
  /// reason for a refusal; may be empty. Does not read the payload.
  virtual void Result(std::uint64_t number, const HalRequest& request, HalReturnCode code,
                      std::string_view reason) = 0;

  /// The marks of a reinstall, in order with the requests.
  virtual void BeginReinstall() = 0;
  virtual void EndReinstall() = 0;

  /// The server tells the state of an object, in order with the results; before it is reported.
  virtual void ObjectStateChanged(const HalObjectState& state) = 0;

  /// The HAL server was found; called before that is reported. For a server: it starts, with empty
  /// tables.
  virtual void ServerFound() = 0;

  /// An event worth a line for the operator, without a line break.
  virtual void Event(std::string_view line) = 0;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_HAL_REQUEST_OBSERVER_H_
