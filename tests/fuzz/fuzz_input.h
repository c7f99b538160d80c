#ifndef ZUSKUX_TESTS_FUZZ_FUZZ_INPUT_H_
#define ZUSKUX_TESTS_FUZZ_FUZZ_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

/// The bytes of one input, consumed from the front. Beyond the end, numbers read as 0 and texts as
/// empty, so every input is meaningful.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return rest_.empty(); }

  std::uint8_t Byte() {
    if (rest_.empty()) return 0;
    const auto byte = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return byte;
  }

  bool Bool() { return (Byte() & 1) != 0; }

  /// Four bytes, the lowest first.
  std::uint32_t Number() {
    std::uint32_t number = 0;
    for (int shift = 0; shift < 32; shift += 8) number |= std::uint32_t{Byte()} << shift;
    return number;
  }

  /// A one-byte length, followed by that many bytes.
  std::string Text() { return std::string(Take(Byte())); }

  std::string_view Take(std::size_t size) {
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
  }

  std::string_view Rest() { return Take(rest_.size()); }

 private:
  std::string_view rest_;
};

/// Aborts the process, as a finding, unless `condition` holds.
void Check(bool condition, const char* what);

}  // namespace fuzz

/// Runs one input. Every target defines it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif  // ZUSKUX_TESTS_FUZZ_FUZZ_INPUT_H_
