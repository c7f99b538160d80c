// Any text as a site file: it yields either mistakes, in order and each with a text, or a site that
// survives writing and reading unchanged.
//
// Input: the text.

#include <string>
#include <variant>
#include <vector>

#include "reference/site/site_reader.h"
#include "reference/site/site_writer.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

using fuzz::Check;
using reference::Diagnostic;
using reference::ParseSite;
using reference::Site;

void CheckErrors(const std::vector<Diagnostic>& errors) {
  Check(!errors.empty(), "neither a site nor a mistake");
  const Diagnostic* earlier = nullptr;
  for (const Diagnostic& error : errors) {
    Check(!error.text.empty(), "a mistake without a text");
    Check(error.place.line >= 0 && error.place.column >= 0, "a mistake without a place");
    Check(earlier == nullptr || !(error.place < earlier->place), "mistakes out of order");
    earlier = &error;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const auto result = ParseSite(std::string(input.Rest()));
  if (const auto* const errors = std::get_if<std::vector<Diagnostic>>(&result)) {
    CheckErrors(*errors);
    return 0;
  }
  const auto& site = std::get<Site>(result);
  const auto again = ParseSite(reference::WriteSite(site));
  Check(std::holds_alternative<Site>(again), "what was written cannot be read");
  Check(std::get<Site>(again) == site, "what was written is another site");
  return 0;
}
