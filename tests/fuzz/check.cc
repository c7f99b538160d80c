#include <cstdio>
#include <cstdlib>

#include "reference/text/protobuf_log.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

// Protobuf would print millions of parse errors on stderr.
[[maybe_unused]] const bool silenced = (reference::SilenceProtobufLog(), true);

}  // namespace

namespace fuzz {

void Check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "finding: %s\n", what);
  std::abort();
}

}  // namespace fuzz
