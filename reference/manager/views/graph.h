#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_

#include <string>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// The objects and their dependencies in the DOT language, with a legend. Omits removed objects.
std::string GraphText(const DestDatabase& database);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_
