#include "tests/system/keeping_hal_client.h"

#include <google/protobuf/message.h>

#include "app_framework/app_message.h"

KeepingHalClient::ReturnCode KeepingHalClient::Keep(const char* operation,
                                                    const AppMessage* message) {
  requests.push_back(std::string(operation) + " " + message->message()->ShortDebugString());
  return ReturnCode{};
}
