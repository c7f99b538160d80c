#include "reference/hal/hal_request.h"

#include <cstdint>
#include <typeinfo>

#include "app_framework/app_message.h"
#include "reference/hal/hal_connection.h"

namespace reference {

HalRequest WithoutPayload(const HalRequest& request) {
  return {request.operation, request.id, request.secondary_id, {}, request.number};
}

void MakeRequest(HalOperation operation, const AppMessage& wrapper, HalRequest* request) {
  request->operation = operation;
  request->id = request->secondary_id = 0;
  request->number = 0;
  VisitKind(KindOf(operation), [request, carried = wrapper.message()](auto row) {
    using Message = typename decltype(row)::Message;
    // Nothing derives from a message's class.
    if (carried == nullptr || typeid(*carried) != typeid(Message)) return request->payload.clear();
    const auto& message = static_cast<const Message&>(*carried);
    request->id = row.Id(message).value_or(0);
    request->secondary_id = row.SecondaryId(message);
    // Unlike the message's own functions for strings, this clears nothing that it then overwrites.
    request->payload.resize(message.ByteSizeLong());
    message.SerializeWithCachedSizesToArray(
        reinterpret_cast<std::uint8_t*>(request->payload.data()));
  });
}

void ReportResult(HalCallback* callback, const HalRequest& request, HalReturnCode code,
                  std::string_view reason) {
  const auto report = TraitsOf(request.operation).report;
  if (report == nullptr) return;
  const ScopedReport reported(code, reason);
  report(callback, code, {request.id, request.secondary_id});
}

}  // namespace reference
