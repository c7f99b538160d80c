#ifndef ZUSKUX_TESTS_SUPPORT_HAI_TEST_H_
#define ZUSKUX_TESTS_SUPPORT_HAI_TEST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/core/demangle.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "dest_manager/db_objects.h"
#include "tests/support/allocations.h"
#include "tests/support/events.h"
#include "tests/support/fake_app_framework.h"
#include "tests/support/fake_hal_client.h"
#include "tests/support/fake_handlers.h"
#include "tests/support/fake_interface_ids.h"
#include "tests/support/fake_log.h"

namespace testing_support {

/// A destination object with an empty record of its kind, and that record with its type.
template <typename Object, typename Record>
struct TestObject {
  TestObject() { object.record = std::make_unique<Record>(); }
  Record& record() { return static_cast<Record&>(*object.record); }
  void* pointer() { return &object; }

  Object object;
};

/// The name of a class without its namespace.
template <typename T>
std::string ClassName() {
  const std::string name = boost::core::demangle(typeid(T).name());
  return name.substr(name.rfind(':') + 1);
}

/// Names the tests of a typed suite by their class.
struct ClassNames {
  template <typename T>
  static std::string GetName(int /*index*/) {
    return ClassName<T>();
  }
};

/// "0x" and the 16 upper-case digits of an address, formatted without the code under test.
std::string Address(const void* object);

/// A frame as `Unserialize` reads it: header word, payload length (big-endian), payload. `length`,
/// if given, replaces the payload's own.
std::string Frame(std::string_view payload);
std::string Frame(std::string_view payload, std::uint32_t length);

/// Clears the events, and returns the number of live allocations.
std::ptrdiff_t LiveWithoutEvents();

/// The library with fakes around it: a registered HAL client, tracing on, an empty list of events.
class HaiTest : public ::testing::Test {
 protected:
  HaiTest();
  ~HaiTest() override;

  /// Unregisters the client.
  void WithoutClient();

  FakeHalClient client_;
};

}  // namespace testing_support

#endif  // ZUSKUX_TESTS_SUPPORT_HAI_TEST_H_
