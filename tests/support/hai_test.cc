#include "tests/support/hai_test.h"

#include <cstdio>

#include "zuskux/hai.h"

namespace testing_support {

std::string Address(const void* object) {
  char text[19];
  std::snprintf(text, sizeof text, "0x%016lX", reinterpret_cast<unsigned long>(object));
  return text;
}

std::string Frame(std::string_view payload) {
  return Frame(payload, static_cast<std::uint32_t>(payload.size()));
}

std::string Frame(std::string_view payload, std::uint32_t length) {
  std::string frame = "HEAD";
  for (const int shift : {24, 16, 8, 0}) frame += static_cast<char>(length >> shift);
  return frame.append(payload);
}

std::ptrdiff_t LiveWithoutEvents() {
  std::vector<std::string>().swap(Events());
  return LiveAllocations();
}

HaiTest::HaiTest() {
  dest_mng::Hai::GetInstance()->set_client(&client_);
  SetTrace(true);
  SetLogHook(nullptr);
  SetHandlerHook(nullptr);
  SetMessageHook(nullptr);
  SetConstructionHook(nullptr);
  WatchDeletion(nullptr);
  InterfaceIds() = FakeInterfaceIds{};
  Events().clear();
}

HaiTest::~HaiTest() { WithoutClient(); }

void HaiTest::WithoutClient() { dest_mng::Hai::GetInstance()->set_client(nullptr); }

}  // namespace testing_support
