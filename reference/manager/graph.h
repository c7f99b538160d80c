#ifndef ZUSKUX_REFERENCE_MANAGER_GRAPH_H_
#define ZUSKUX_REFERENCE_MANAGER_GRAPH_H_

#include <string>

#include "reference/manager/dest_database.h"

namespace reference {

/// Whether `WriteGraph` can write to a file of this name: "....svg", "....dot" or "....gv".
bool IsGraphFileName(const std::string& path);

/// The objects and what they ride on in the DOT language, with a legend. Removed objects are left
/// out.
std::string GraphText(const DestDatabase& database);

/// Writes the graph: DOT text as it is, an SVG drawing with Graphviz' `dot`. Throws
/// std::runtime_error that says what to do; what was at `path` then stays.
void WriteGraph(const DestDatabase& database, const std::string& path);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_GRAPH_H_
