// Any text as a site file: either mistakes, in order and each with a text, or a site that, written
// and read again, is the same.
//
// Input: the text.

#include <string>
#include <tuple>
#include <variant>
#include <vector>

#include "reference/site/site_reader.h"
#include "reference/site/site_writer.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using fuzz::Check;
using reference::ParseSite;
using reference::Site;
using reference::SiteError;

void CheckErrors(const std::vector<SiteError>& errors) {
  Check(!errors.empty(), "neither a site nor a mistake");
  const SiteError* earlier = nullptr;
  for (const SiteError& error : errors) {
    Check(!error.text.empty(), "a mistake without a text");
    Check(error.line >= 0 && error.column >= 0, "a mistake at no place");
    Check(earlier == nullptr ||
              std::tie(earlier->line, earlier->column) <= std::tie(error.line, error.column),
          "mistakes out of order");
    earlier = &error;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const auto result = ParseSite(std::string(input.Rest()));
  if (const auto* const errors = std::get_if<std::vector<SiteError>>(&result)) {
    CheckErrors(*errors);
    return 0;
  }
  const auto& site = std::get<Site>(result);
  const auto again = ParseSite(reference::WriteSite(site));
  Check(std::holds_alternative<Site>(again), "what was written cannot be read");
  Check(std::get<Site>(again) == site, "what was written is another site");
  return 0;
}
