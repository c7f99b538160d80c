#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_FILE_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_FILE_H_

#include <chrono>
#include <optional>
#include <string>

#include "reference/text/output_file.h"

namespace reference {

/// The drawing, an SVG, that Graphviz' `dot` makes of DOT text, in at most so much processor time
/// if there is a limit. Throws `std::runtime_error` with the remedy.
std::string DrawGraph(const std::string& text, std::optional<std::chrono::seconds> processor_time);

/// The file that a graph goes to: DOT text or, for an .svg, a drawing made with Graphviz' `dot`.
/// Used on one thread.
class GraphFile {
 public:
  /// Whether the constructor accepts the name: "....svg", "....dot" or "....gv".
  static bool IsName(const std::string& path);

  /// Opens the file and, for a drawing, looks for `dot`. Throws `std::runtime_error` with the
  /// remedy.
  explicit GraphFile(const std::string& path);

  /// Writes or draws the DOT text. Call once. Throws as the constructor does; the previous file at
  /// the path then stays.
  void Write(const std::string& text);

 private:
  const bool drawn_;
  OutputFile file_;
};

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_FILE_H_
