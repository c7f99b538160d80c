#ifndef ZUSKUX_TESTS_MANAGER_TABLE_HAL_H_
#define ZUSKUX_TESTS_MANAGER_TABLE_HAL_H_

#include <array>
#include <cstddef>
#include <deque>
#include <limits>

#include "reference/hal/hal_connection.h"
#include "reference/hal/hal_tables.h"

namespace reference {

using Capacities = std::array<std::size_t, kHalKinds>;

/// A HAL on the test's thread: queues requests until the test has them carried out, in order.
class TableHal : public HalConnection {
 public:
  TableHal() { capacities_.fill(kUnlimited); }

  void Start(HalReports reports) override;
  bool HasRoom() override { return found_; }
  void AskForDigests() override;
  HalConnectionCounters counters() const override { return {}; }
  HalLatencies latencies() const override { return {}; }

  /// The capacity of each table.
  void SetCapacities(const Capacities& capacities) { capacities_ = capacities; }

  void FindServer();
  /// Loses the server, and its tables too if it `forgets`. Everything that waits has ended.
  void LoseServer(bool forgets);

  /// Carries out up to `count` requests and marks. Returns how many.
  std::size_t CarryOut(std::size_t count);

  const HalTables& tables() const { return tables_; }

 protected:
  HalReturnCode Submit(HalRequest* request) override;
  void SubmitBeginReinstall() override { queue_.push_back({{}, &HalTables::BeginReinstall}); }
  void SubmitEndReinstall() override { queue_.push_back({{}, &HalTables::EndReinstall}); }

 private:
  static constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

  struct Task {
    HalRequest request;
    /// Null for a request.
    void (HalTables::*mark)() = nullptr;
  };

  HalReturnCode Apply(const HalRequest& request);
  void Report(const HalRequest& request, HalReturnCode code);

  HalReports reports_;
  bool found_ = false;
  Capacities capacities_{};
  HalTables tables_{kUnlimited};
  std::deque<Task> queue_;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_MANAGER_TABLE_HAL_H_
