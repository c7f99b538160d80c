#include <google/protobuf/stubs/logging.h>

#include <cstdio>
#include <cstdlib>

#include "tests/fuzz/fuzz_input.h"

namespace {

// Protobuf would print millions of parse errors on stderr.
[[maybe_unused]] google::protobuf::LogHandler* const previous =
    google::protobuf::SetLogHandler(nullptr);

}  // namespace

namespace fuzz {

void Check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "finding: %s\n", what);
  std::abort();
}

}  // namespace fuzz
