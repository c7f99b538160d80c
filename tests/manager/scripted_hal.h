#ifndef ZUSKUX_TESTS_MANAGER_SCRIPTED_HAL_H_
#define ZUSKUX_TESTS_MANAGER_SCRIPTED_HAL_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "reference/hal/hal_connection.h"

namespace reference {

/// A HAL on the test's thread: keeps each request until the test answers it. Fails the test if a
/// request arrives without a prior check for room, or for an object with a request in flight.
class ScriptedHal : public HalConnection {
 public:
  void Start(HalReports reports) override;
  bool HasRoom() override;
  void AskForDigests() override { log_.emplace_back("ask-for-digests"); }
  HalConnectionCounters counters() const override { return {}; }
  HalLatencies latencies() const override { return {}; }

  /// Answers the end of a reinstall, if one was sent.
  void EndReinstalls();
  /// Sets what those answers report from now on.
  void SetInSync(bool in_sync) { in_sync_ = in_sync; }
  /// Reports the end of a reinstall that was not requested.
  void ReportReinstallEnded(bool in_sync) { reports_.reinstall_ended(in_sync); }
  void LoseServer() { reports_.server_lost(); }
  /// Finds the server; every result of the previous server has been delivered.
  void FindServer();
  /// The same while requests are in flight; the new server answers them.
  void FindServerWithRequestsInFlight() { reports_.server_found(); }
  /// Sets the HAL's reason for its results from now on.
  void SetReason(const std::string& reason) { reason_ = reason; }
  /// Answers the oldest request in flight.
  void Answer(HalReturnCode code = kHalSuccess);
  void AnswerAll(HalReturnCode code = kHalSuccess);
  /// Answers the request in flight with that text, for example "install-vlan 10".
  void Answer(const std::string& request, HalReturnCode code);
  /// Reports a result that belongs to no request.
  void Report(HalOperation operation, std::uint32_t id, HalReturnCode code);

  /// The digests of what the answers so far have acknowledged.
  HalDigests Digests(EntryHashFunction function = EntryHashFunction::kXxh3) const;
  void ReportDigests(const HalDigests& digests) { reports_.digests(digests); }

  /// Reports the state of an object.
  void ReportState(HalKind kind, std::uint32_t id, HalReturnCode code,
                   const std::string& reason = {}) {
    reports_.object_state({kind, id, code, reason});
  }

  /// Limits how many requests may be in flight.
  void SetRoom(std::size_t room) { room_ = room; }
  /// Reports that there is room again, if the manager waits for that.
  void ReportRoom();

  /// Returns what was sent since the previous call, in order: "install-vlan 10", "begin-reinstall"
  /// and so on.
  std::vector<std::string> TakeLog();
  std::size_t outstanding() const { return outstanding_.size(); }
  /// The last message sent.
  const std::string& last_payload() const { return last_payload_; }

 protected:
  HalReturnCode Submit(HalRequest* request) override;
  void SubmitBeginReinstall() override;
  void SubmitEndReinstall() override;

 private:
  void AnswerAt(std::size_t place, HalReturnCode code);
  void Report(const HalRequest& request, HalReturnCode code);

  HalReports reports_;
  std::deque<HalRequest> outstanding_;
  // What it has acknowledged.
  std::map<std::pair<HalKind, std::uint32_t>, std::string> held_;
  std::vector<std::string> log_;
  std::string last_payload_;
  std::string reason_;
  bool end_sent_ = false;
  bool in_sync_ = true;
  std::size_t room_ = 1000;
  bool room_asked_ = false;
  bool room_wanted_ = false;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_MANAGER_SCRIPTED_HAL_H_
