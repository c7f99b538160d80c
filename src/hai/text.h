#ifndef ZUSKUX_HAI_TEXT_H_
#define ZUSKUX_HAI_TEXT_H_

#include <array>
#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>

namespace dest_mng {

/// A line of text under construction, on the stack of the function that renders it. Building a line
/// of the usual length does not allocate; only `str()` does, for the result.
class Text {
 public:
  void Append(std::string_view piece) {
    if (piece.size() > buffer_.size() - used_) {
      AppendBeyondBuffer(piece);
      return;
    }
    used_ += piece.copy(buffer_.data() + used_, piece.size());
  }

  /// Appends `number` in decimal.
  template <typename Integer>
  void AppendDecimal(Integer number) {
    MakeRoom(kMaxNumberSize);
    char* const begin = buffer_.data() + used_;
    used_ +=
        static_cast<std::size_t>(std::to_chars(begin, begin + kMaxNumberSize, number).ptr - begin);
  }

  std::string str() const {
    if (head_.empty()) return {buffer_.data(), used_};
    return head_ + std::string(buffer_.data(), used_);
  }

 private:
  // Digits and sign of a 64-bit number in decimal.
  static constexpr std::size_t kMaxNumberSize = 20;

  void MakeRoom(std::size_t size) {
    if (size > buffer_.size() - used_) EmptyBuffer();
  }

  // Out of line, so that appending a short piece takes only a few instructions.
  [[gnu::noinline]] void EmptyBuffer() {
    head_.append(buffer_.data(), used_);
    used_ = 0;
  }

  [[gnu::noinline]] void AppendBeyondBuffer(std::string_view piece) {
    EmptyBuffer();
    head_.append(piece);
  }

  std::array<char, 512> buffer_;
  std::size_t used_ = 0;
  // What did not fit into the buffer; it precedes the buffer's content.
  std::string head_;
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_TEXT_H_
