#ifndef ZUSKUX_PLATFORM_ZLOG_RECORD_FORMAT_H_
#define ZUSKUX_PLATFORM_ZLOG_RECORD_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zlog_standin {

/// One call of `zlog`. The views are valid during that call.
struct Record {
  std::timespec time;
  std::string_view level;  ///< Name of the level, in capitals.
  std::string_view category;
  std::string_view file;
  std::string_view function;
  std::int64_t line;
  std::string_view text;
};

/// A compiled pattern such as `%d(%T) %-6V %m%n`. Immutable after `Compile`.
class RecordFormat {
 public:
  /// On failure returns nothing; `error` then says what is wrong in `pattern` and what is allowed.
  static std::optional<RecordFormat> Compile(const std::string& pattern, std::string* error);

  /// Appends `record` to `out`. Called on the thread that logs, whose id `%t` and `%T` show.
  void Render(const Record& record, std::string* out) const;

 private:
  struct Field;
  using Renderer = std::string_view (*)(const Field& field);

  struct Conversion {
    std::string_view name;
    Renderer render;
  };

  struct Piece {
    Renderer render;
    std::string argument;  ///< A literal's text, or the strftime format of `%d`.
    bool left_justified = false;
    std::size_t min_width = 0;
    std::size_t max_width = std::string::npos;
  };

  static const Conversion kConversions[];

  std::vector<Piece> pieces_;
};

}  // namespace zlog_standin

#endif  // ZUSKUX_PLATFORM_ZLOG_RECORD_FORMAT_H_
