#ifndef ZUSKUX_TESTS_MANAGER_SCRIPTED_HAL_H_
#define ZUSKUX_TESTS_MANAGER_SCRIPTED_HAL_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "reference/hal/hal_connection.h"

namespace reference {

/// A HAL on the test's thread: keeps what is sent until the test answers it. Fails the test when a
/// request comes without room having been asked for, or for an object whose result is outstanding.
class ScriptedHal : public HalConnection {
 public:
  void Start(HalReports reports) override;
  bool HasRoom() override;
  HalConnectionCounters counters() const override { return {}; }
  HalLatencies latencies() const override { return {}; }

  /// The server answers the end of a reinstall, if one was sent.
  void EndReinstalls();
  /// What it says of them from now on.
  void SetInSync(bool in_sync) { in_sync_ = in_sync; }
  void LoseServer() { reports_.server_lost(); }
  /// The server is found; all results of the one before have been given.
  void FindServer();
  /// The same while requests are in flight, which the new server answers.
  void FindServerWithRequestsInFlight() { reports_.server_found(); }
  /// Answers the oldest request that waits for its result.
  void Answer(HalReturnCode code = kHalSuccess);
  void AnswerAll(HalReturnCode code = kHalSuccess);
  /// Answers the request "install-vlan 10", which waits for its result.
  void Answer(const std::string& request, HalReturnCode code);
  /// A result that nothing was sent for.
  void Report(HalOperation operation, std::uint32_t id, HalReturnCode code);

  /// How many requests wait for a result at most.
  void SetRoom(std::size_t room) { room_ = room; }
  /// Tells that there is room again, if that is awaited.
  void ReportRoom();

  /// What was sent since the last call, in order: "install-vlan 10", "begin-reinstall" and so on.
  std::vector<std::string> TakeLog();
  std::size_t outstanding() const { return outstanding_.size(); }
  /// The last message sent.
  const std::string& last_payload() const { return last_payload_; }

 protected:
  HalReturnCode Submit(HalRequest request) override;
  void SubmitBeginReinstall() override;
  void SubmitEndReinstall() override;

 private:
  void AnswerAt(std::size_t place, HalReturnCode code);

  HalReports reports_;
  std::deque<HalRequest> outstanding_;
  std::vector<std::string> log_;
  std::string last_payload_;
  bool end_sent_ = false;
  bool in_sync_ = true;
  std::size_t room_ = 1000;
  bool room_asked_ = false;
  bool room_wanted_ = false;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_MANAGER_SCRIPTED_HAL_H_
