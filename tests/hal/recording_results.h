#ifndef ZUSKUX_TESTS_HAL_RECORDING_RESULTS_H_
#define ZUSKUX_TESTS_HAL_RECORDING_RESULTS_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>

#include "hal_client/hal_l3_mpls_encapsulation_client_callback_itf.h"
#include "reference/hal/hal_connection.h"

namespace reference {

/// One call of a result operation.
struct Result {
  std::string operation;
  std::uint32_t code = 0;
  std::uint32_t id = 0;
  std::uint32_t secondary_id = 0;
  /// What `ReportedCode` and `ReportedReason` returned inside the call.
  std::uint32_t reported = 0;
  std::string reason{};
};

inline bool operator==(const Result& a, const Result& b) {
  return std::tie(a.operation, a.code, a.id, a.secondary_id, a.reported, a.reason) ==
         std::tie(b.operation, b.code, b.id, b.secondary_id, b.reported, b.reason);
}

inline std::ostream& operator<<(std::ostream& out, const Result& result) {
  return out << result.operation << " code=" << result.code << " id=" << result.id
             << " secondary_id=" << result.secondary_id << " reported=" << result.reported
             << " reason=" << result.reason;
}

/// Passes every result to a function, on the reporting thread.
class RecordingResults : public HalL3MplsEncapsulationClientCallbackItf {
 public:
  explicit RecordingResults(std::function<void(const Result&)> record)
      : record_(std::move(record)) {}

  void InitEncapsulationModuleResCallback(ReturnCode /*code*/) override {
    ADD_FAILURE() << "the module's initialisation has no result";
  }

  void InstallVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) override {
    Record("InstallVlan", code, id);
  }
  void DestroyVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) override {
    Record("DestroyVlan", code, id);
  }
  void ReplaceVlanOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) override {
    Record("ReplaceVlan", code, id);
  }

  void InstallHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) override {
    Record("InstallHost", code, id);
  }
  void DestroyHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) override {
    Record("DestroyHost", code, id);
  }
  void ReplaceHostOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id) override {
    Record("ReplaceHost", code, id);
  }

  void InstallEcmpEncapResCallback(ReturnCode code, unsigned int id) override {
    Record("InstallEcmp", code, id);
  }
  void DestroyEcmpEncapResCallback(ReturnCode code, unsigned int id) override {
    Record("DestroyEcmp", code, id);
  }

  void InstallMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int secondary_id) override {
    Record("InstallMpls", code, id, secondary_id);
  }
  void DestroyMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int secondary_id) override {
    Record("DestroyMpls", code, id, secondary_id);
  }
  void ReplaceMplsUnprotectedOutgoingEncapsulationResCallback(ReturnCode code, unsigned int id,
                                                              unsigned int secondary_id) override {
    Record("ReplaceMpls", code, id, secondary_id);
  }

 private:
  void Record(const char* operation, ReturnCode code, unsigned int id,
              unsigned int secondary_id = 0) {
    record_({operation, static_cast<std::uint32_t>(code), id, secondary_id,
             static_cast<std::uint32_t>(ReportedCode()), std::string(ReportedReason())});
  }

  std::function<void(const Result&)> record_;
};

}  // namespace reference

#endif  // ZUSKUX_TESTS_HAL_RECORDING_RESULTS_H_
