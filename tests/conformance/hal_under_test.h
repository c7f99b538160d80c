#ifndef ZUSKUX_TESTS_CONFORMANCE_HAL_UNDER_TEST_H_
#define ZUSKUX_TESTS_CONFORMANCE_HAL_UNDER_TEST_H_

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

#include "reference/hal/hal_connection.h"
#include "reference/hal/hal_request.h"
#include "reference/hal/hal_tables.h"
#include "reference/hal/kinds.h"

namespace reference {

/// The outcome of a request, as the connection reports it.
struct Answer {
  HalOperation operation{};
  HalReturnCode code = kHalSuccess;
  ResultIds ids;
  /// The HAL's reason for a refusal.
  std::string reason;
};

/// Collects what a connection reports. A wait that is not over after half a minute fails the test.
class Answers : private HalCallbackBase {
 public:
  HalReports Reports();

  /// Removes and returns the oldest answer.
  Answer Next();
  void AwaitServer();
  int ended_reinstalls() const;
  /// Waits until another reinstall has ended since there were `before`. The HAL must hold what it
  /// acknowledged.
  void AwaitEndOfReinstall(int before);

 private:
  void OnResult(HalOperation operation, HalReturnCode code, const ResultIds& ids) override;
  void Add(const Answer& answer);
  void Await(const char* what, const std::function<bool()>& condition,
             std::unique_lock<std::mutex>* lock);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by `mutex_`:
  std::deque<Answer> answers_;
  bool server_found_ = false;
  bool in_sync_ = true;
  int ended_reinstalls_ = 0;
};

/// A HAL under test, seen through its client interface and its contents.
class HalUnderTest {
 public:
  HalUnderTest() = default;
  HalUnderTest(const HalUnderTest&) = delete;
  HalUnderTest& operator=(const HalUnderTest&) = delete;
  virtual ~HalUnderTest() = default;

  virtual HalConnection* connection() = 0;
  /// The entries of all tables.
  virtual TableEntries Contents() = 0;
  /// The differences between the data plane and the tables; empty if there are none.
  virtual std::string Disagreement() { return ""; }

  /// Sends a request without waiting for its answer.
  void Submit(const HalRequest& request);
  /// The next answer.
  Answer Await() { return answers_.Next(); }
  /// Sends a request, waits for its answer, and returns the code.
  HalReturnCode CarryOut(const HalRequest& request);

  void BeginReinstall() { connection()->BeginReinstall(); }
  /// Ends a reinstall that has begun, and waits until the HAL has carried out the end.
  void EndReinstall();
  /// Removes all entries.
  void Clear();

 protected:
  /// Starts the connection and waits for the server.
  void Start();

 private:
  Answers answers_;
};

/// A HAL in the test's process. `capacity` is the maximum number of entries in each table.
std::unique_ptr<HalUnderTest> MakeEmbeddedHal(std::size_t capacity);
/// A process of zuskux-hal that only keeps tables.
std::unique_ptr<HalUnderTest> MakeSimulatedServer(std::size_t capacity);
/// A process of zuskux-hal that programs the kernel in the calling thread's network namespace. The
/// device of lim id 1 is "eth2".
std::unique_ptr<HalUnderTest> MakeLinuxServer(std::size_t capacity);

inline HalKind KindOfMessage(const encapsulation::VrfMessage& /*vrf*/) { return HalKind::kVrf; }
inline HalKind KindOfMessage(const encapsulation::VlanMessage& /*vlan*/) { return HalKind::kVlan; }
inline HalKind KindOfMessage(const encapsulation::HostMessage& /*host*/) { return HalKind::kHost; }
inline HalKind KindOfMessage(const encapsulation::EcmpMessage& /*ecmp*/) { return HalKind::kEcmp; }
inline HalKind KindOfMessage(const encapsulation::MplsMessage& /*mpls*/) { return HalKind::kMpls; }

/// Throws `std::out_of_range` if the kind has no such operation.
HalOperation OperationOf(HalKind kind, HalAction action);

template <typename Message>
HalRequest RequestOf(HalAction action, const Message& message) {
  const HalKind kind = KindOfMessage(message);
  HalRequest request;
  request.operation = OperationOf(kind, action);
  request.payload = message.SerializeAsString();
  VisitKind(kind, [&request, &message](auto row) {
    using Row = decltype(row);
    if constexpr (std::is_same_v<typename Row::Message, Message>) {
      request.id = Row::Id(message).value_or(0);
      request.secondary_id = Row::SecondaryId(message);
    }
  });
  return request;
}

template <typename Message>
HalRequest Install(const Message& message) {
  return RequestOf(HalAction::kInstall, message);
}

template <typename Message>
HalRequest Replace(const Message& message) {
  return RequestOf(HalAction::kReplace, message);
}

template <typename Message>
HalRequest Destroy(const Message& message) {
  return RequestOf(HalAction::kDestroy, message);
}

}  // namespace reference

#endif  // ZUSKUX_TESTS_CONFORMANCE_HAL_UNDER_TEST_H_
