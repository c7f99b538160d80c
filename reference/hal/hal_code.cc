#include "reference/hal/hal_code.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace reference {
namespace {

struct CodeText {
  HalReturnCode code;
  std::string_view text;
};

constexpr std::array kTexts = {
    CodeText{kHalSuccess, "success"},
    CodeText{kHalMissingReference, "a destination that it refers to does not exist in the HAL"},
    CodeText{kHalLabelOutOfRange, "label above 1048575"},
    CodeText{kHalExists, "exists with different content"},
    CodeText{kHalNotFound, "not installed"},
    CodeText{kHalTableFull, "table full"},
    CodeText{kHalBadRequest, "bad request"},
    CodeText{kHalNoInterface, "no such interface"},
    CodeText{kHalNotSupported, "not supported"},
    CodeText{kHalKernelRefused, "refused by the kernel"},
    CodeText{kHalServerLost, "HAL server lost"},
    CodeText{kHalQueueFull, "send queue full"},
    CodeText{kHalDeadline, "no answer in time"},
    CodeText{kHalTooLarge, "request too large"},
    CodeText{kHalNoServer, "no HAL server"},
};

// The base's destructor is protected, which keeps a category from being deleted through it; the
// warning does not see that.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class Category final : public boost::system::error_category {
 public:
  const char* name() const noexcept override { return "hal"; }

  std::string message(int value) const override {
    const auto code = static_cast<HalReturnCode>(value);
    const auto* const found = std::find_if(
        kTexts.begin(), kTexts.end(), [code](const CodeText& entry) { return entry.code == code; });
    if (found != kTexts.end()) return std::string(found->text);
    return "code " + std::to_string(static_cast<std::uint32_t>(code));
  }
};
#pragma GCC diagnostic pop

}  // namespace

const boost::system::error_category& HalCategory() {
  static const Category category;
  return category;
}

boost::system::error_code MakeErrorCode(HalReturnCode code) {
  return {static_cast<int>(code), HalCategory()};
}

std::string OutcomeText(HalReturnCode code, std::string_view reason) {
  std::string text = MakeErrorCode(code).message();
  if (!reason.empty()) text.append(": ").append(reason);
  return text;
}

}  // namespace reference
