#ifndef ZUSKUX_HAI_TEXT_H_
#define ZUSKUX_HAI_TEXT_H_

#include <array>
#include <charconv>
#include <cstddef>
#include <string>
#include <string_view>

namespace dest_mng {

/// A line of text under construction, on the stack of the function that renders it. Lines of usual
/// length are put together without an allocation; `str()` makes the one that the caller gets.
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
  // Of a 64-bit number in decimal.
  static constexpr std::size_t kMaxNumberSize = 20;

  void MakeRoom(std::size_t size) {
    if (size > buffer_.size() - used_) EmptyBuffer();
  }

  // Out of line, so that appending a short piece stays a few instructions.
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
  // What no longer fitted the buffer; it precedes the buffer's content.
  std::string head_;
};

}  // namespace dest_mng

#endif  // ZUSKUX_HAI_TEXT_H_
