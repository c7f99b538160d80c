#ifndef ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_
#define ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
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

/// `key`, the nodes that it rides on, neighbors included, and those that ride on it, directly or
/// not.
GraphNodes NodesAround(const GraphNodes& nodes, const ObjectKey& key);

/// An arrow of a graph.
struct GraphEdge {
  ObjectKey from;
  ObjectKey to;
  /// "rides_on", "neighbor" or "vrf".
  std::string_view type;
};

/// The arrows between the nodes.
std::vector<GraphEdge> EdgesOf(const GraphNodes& nodes);

/// The objects and their dependencies in the DOT language, with a legend.
std::string GraphText(const GraphNodes& nodes);

/// The same for a page: no legend, each object's node has its key as id, its state as class, and a
/// link to "#object=KIND:ID". If objects were left out, a node says how many.
std::string LinkedGraphText(const GraphNodes& nodes, std::size_t left_out);

}  // namespace reference

#endif  // ZUSKUX_REFERENCE_MANAGER_VIEWS_GRAPH_H_
