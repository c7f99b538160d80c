// Runs a target once on each input in the given folders. Works in every build, while libFuzzer
// needs clang.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/fuzz_input.h"

namespace {

std::vector<std::filesystem::path> InputsIn(const char* folder) {
  std::vector<std::filesystem::path> inputs;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file()) inputs.push_back(entry.path());
  }
  std::sort(inputs.begin(), inputs.end());
  return inputs;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t runs = 0;
  for (int argument = 1; argument < argc; ++argument) {
    for (const auto& path : InputsIn(argv[argument])) {
      std::printf("%s\n", path.c_str());
      std::fflush(stdout);
      std::ifstream file(path, std::ios::binary);
      const std::string bytes{std::istreambuf_iterator<char>(file), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++runs;
    }
  }
  std::printf("%zu inputs\n", runs);
  return runs == 0 ? 1 : 0;
}
