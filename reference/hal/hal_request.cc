#include "reference/hal/hal_request.h"

#include "app_framework/app_message.h"
#include "reference/hal/hal_connection.h"

namespace reference {

HalRequest WithoutPayload(const HalRequest& request) {
  return {request.operation, request.id, request.secondary_id, {}, request.number};
}

HalRequest MakeRequest(HalOperation operation, const AppMessage& wrapper) {
  HalRequest request;
  request.operation = operation;
  VisitKind(KindOf(operation), [&](auto row) {
    using Message = typename decltype(row)::Message;
    const auto* const message = dynamic_cast<const Message*>(wrapper.message());
    if (message == nullptr) return;
    request.id = row.Id(*message).value_or(0);
    request.secondary_id = row.SecondaryId(*message);
    request.payload = message->SerializeAsString();
  });
  return request;
}

void ReportResult(HalCallback* callback, const HalRequest& request, HalReturnCode code,
                  std::string_view reason) {
  const auto report = TraitsOf(request.operation).report;
  if (report == nullptr) return;
  const ScopedReport reported(code, reason);
  report(callback, code, {request.id, request.secondary_id});
}

}  // namespace reference
