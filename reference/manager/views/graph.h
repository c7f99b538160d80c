#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_

#include <string>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// Whether `WriteGraph` accepts the file name: "....svg", "....dot" or "....gv".
bool IsGraphFileName(const std::string& path);

/// The objects and their dependencies in the DOT language, with a legend. Omits removed objects.
std::string GraphText(const DestDatabase& database);

/// Writes the graph: the DOT text itself, or an SVG drawing made with Graphviz' `dot`. Throws
/// `std::runtime_error` with the remedy; the previous file at `path` then stays.
void WriteGraph(const DestDatabase& database, const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_
