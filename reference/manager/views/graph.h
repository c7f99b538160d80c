#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "reference/manager/engine/dest_database.h"

namespace reference {

/// What a graph shows of an object.
struct GraphNode {
  ObjectKey key;
  std::string name;
  Standing standing = Standing::kPending;
  Layer layer = Layer::kVrf;
  /// What it rides on.
  std::vector<ObjectKey> references;
  std::optional<ObjectKey> neighbor;
  /// A VRF's number, and that of a VLAN's VRF.
  std::optional<std::uint32_t> vrf;
};
using GraphNodes = std::map<ObjectKey, GraphNode>;

GraphNode NodeOf(const DestDatabase& database, const Object& object);
/// Omits removed objects.
GraphNodes NodesOf(const DestDatabase& database);

nlohmann::ordered_json NodeAsJson(const GraphNode& node);
/// The reverse. Throws `nlohmann::json::exception` or `std::runtime_error` for other JSON.
GraphNode NodeOfJson(const nlohmann::ordered_json& json);

/// `key`, the nodes that it rides on, directly or not, and those that ride on it.
GraphNodes NodesAround(const GraphNodes& nodes, const ObjectKey& key);

/// The objects and their dependencies in the DOT language, with a legend.
std::string GraphText(const GraphNodes& nodes);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_
