#include "reference/manager/views/graph.h"

#include <array>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "reference/manager/views/report.h"
#include "reference/text/printable.h"

namespace reference {
namespace {

/// A column of the drawing, as the legend shows it. Objects of other layers have their own column
/// and plain boxes.
struct Column {
  Layer layer;
  std::string_view name;
  std::string_view shape;
};
constexpr std::array<Column, 6> kColumns = {{{Layer::kEcmp, "ecmp group", "hexagon"},
                                             {Layer::kCircuit, "virtual circuit", "oval"},
                                             {Layer::kTunnel, "mpls tunnel", "octagon"},
                                             {Layer::kHost, "host", "box"},
                                             {Layer::kVlan, "vlan", "tab"},
                                             {Layer::kVrf, "vrf", "box3d"}}};

struct Colour {
  Standing standing;
  std::string_view fill;
};
constexpr std::array<Colour, 5> kColours = {{{Standing::kInstalled, "#b7e1b5"},
                                             {Standing::kInactive, "#ffd79a"},
                                             {Standing::kSent, "#b9d7f2"},
                                             {Standing::kPending, "#e4e4e4"},
                                             {Standing::kFailed, "#f4a9a0"}}};

constexpr char kHead[] = R"(digraph destinations {
  rankdir=LR;
  fontname="sans-serif";
  fontsize=12;
  ranksep=0.6;
  nodesep=0.08;
  node [style=filled, fontname="sans-serif", fontsize=10, margin="0.06,0.03", height=0.3];
  edge [arrowsize=0.5, color="#707070"];
)";

std::string_view ShapeOf(Layer layer) {
  for (const Column& column : kColumns) {
    if (column.layer == layer) return column.shape;
  }
  return "box";
}

std::string_view FillOf(Standing standing) {
  for (const Colour& colour : kColours) {
    if (colour.standing == standing) return colour.fill;
  }
  return "white";
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : Printable(text)) {
    if (character == '"' || character == '\\') quoted += '\\';
    quoted += character;
    // Graphviz reads HTML entities in every text.
    if (character == '&') quoted += "amp;";
  }
  return quoted + '"';
}

std::string NodeId(const ObjectKey& key) { return Quoted(KeyText(key)); }

// What a script needs of a drawn node: its id, its class and, for an object, its address in a page.
std::string NodeAttributes(const GraphNode& node) {
  const std::string key = KeyText(node.key);
  return ", id=" + Quoted(key) + ", class=" + Quoted(StandingName(node.standing)) +
         ", URL=" + Quoted("#object=" + key);
}

std::string NodeText(const GraphNode& node, const std::string& attributes) {
  // Labels need a literal "\n", so it must not be escaped.
  std::string label = Quoted(node.name);
  label.insert(label.size() - 1, "\\n" + KeyText(node.key));
  return NodeId(node.key) + " [label=" + label + ", shape=" + std::string(ShapeOf(node.layer)) +
         ", fillcolor=\"" + std::string(FillOf(node.standing)) + '"' + attributes + "];\n";
}

std::string Edge(const GraphNodes& nodes, const ObjectKey& from, const ObjectKey& to,
                 const char* attributes) {
  if (nodes.count(to) == 0) return {};
  return "  " + NodeId(from) + " -> " + NodeId(to) + attributes + ";\n";
}

std::string LegendNode(const std::string& name, const std::string& style) {
  return "    \"legend " + name + "\" [label=\"" + name + "\", " + style + "];\n";
}

std::string Legend() {
  std::string text = "  subgraph cluster_legend {\n    label=\"legend\";\n";
  for (const Colour& colour : kColours) {
    text += LegendNode(std::string(StandingName(colour.standing)),
                       "shape=box, color=white, fillcolor=\"" + std::string(colour.fill) + '"');
  }
  for (const Column& column : kColumns) {
    text += LegendNode(std::string(column.name),
                       "shape=" + std::string(column.shape) + ", fillcolor=white");
  }
  return text + "  }\n";
}

/// Hosts that nothing refers to, grouped by VLAN and state. A large group is drawn as one node,
/// since only its size is of interest.
class HostGroups {
 public:
  using Group = std::vector<const GraphNode*>;

  explicit HostGroups(const GraphNodes& nodes) {
    const std::set<ObjectKey> referenced = Referenced(nodes);
    for (const auto& [key, node] : nodes) {
      if (key.kind != HalKind::kHost) continue;
      if (node.references.size() != 1 || referenced.count(key) != 0) continue;
      groups_[{node.references.front(), node.standing}].push_back(&node);
    }
    for (auto group = groups_.begin(); group != groups_.end();) {
      group = group->second.size() < kLeast ? groups_.erase(group) : std::next(group);
    }
    for (const auto& [place, group] : groups_) {
      for (const GraphNode* const host : group) members_.insert(host->key.id);
    }
  }

  bool Contains(const ObjectKey& key) const {
    return key.kind == HalKind::kHost && members_.count(key.id) != 0;
  }

  std::string Nodes(bool linked) const {
    std::string text;
    for (const auto& [place, group] : groups_) {
      std::string label = Quoted(group.front()->name + " ... " + group.back()->name);
      label.insert(label.size() - 1, "\\n" + std::to_string(group.size()) + " hosts");
      text +=
          "    " + Id(group) + " [label=" + label +
          ", shape=" + std::string(ShapeOf(Layer::kHost)) + ", peripheries=2, fillcolor=\"" +
          std::string(FillOf(place.second)) + '"' +
          (linked ? ", class=" + Quoted(std::string(StandingName(place.second)) + " group") : "") +
          "];\n";
    }
    return text;
  }

  std::string Edges() const {
    std::string text;
    for (const auto& [place, group] : groups_) {
      text += "  " + Id(group) + " -> " + NodeId(place.first) + ";\n";
    }
    return text;
  }

 private:
  static constexpr std::size_t kLeast = 4;

  static std::string Id(const Group& group) {
    return Quoted("hosts from " + KeyText(group.front()->key));
  }

  static std::set<ObjectKey> Referenced(const GraphNodes& nodes) {
    std::set<ObjectKey> keys;
    for (const auto& [key, node] : nodes) {
      keys.insert(node.references.begin(), node.references.end());
      if (node.neighbor) keys.insert(*node.neighbor);
    }
    return keys;
  }

  // By VLAN and state.
  std::map<std::pair<ObjectKey, Standing>, Group> groups_;
  std::set<std::uint32_t> members_;
};

std::string Layers(const GraphNodes& nodes, const HostGroups& groups, bool linked) {
  // From objects that nothing refers to, on the left, to objects that refer to nothing.
  std::map<Layer, std::string, std::greater<>> layers;
  for (const auto& [key, node] : nodes) {
    if (groups.Contains(key)) continue;
    layers[node.layer] += "    " + NodeText(node, linked ? NodeAttributes(node) : "");
  }
  layers[Layer::kHost] += groups.Nodes(linked);
  std::string text;
  for (const auto& [layer, drawn] : layers) {
    if (!drawn.empty()) text += "  {\n    rank=same;\n" + drawn + "  }\n";
  }
  return text;
}

std::map<std::uint32_t, ObjectKey> VrfsByNumber(const GraphNodes& nodes) {
  std::map<std::uint32_t, ObjectKey> vrfs;
  for (const auto& [key, node] : nodes) {
    if (key.kind == HalKind::kVrf && node.vrf) vrfs.emplace(*node.vrf, key);
  }
  return vrfs;
}

std::string Edges(const GraphNodes& nodes, const HostGroups& groups) {
  const std::map<std::uint32_t, ObjectKey> vrfs = VrfsByNumber(nodes);
  std::string text = groups.Edges();
  for (const auto& [key, node] : nodes) {
    if (groups.Contains(key)) continue;
    for (const ObjectKey& reference : node.references) text += Edge(nodes, key, reference, "");
    if (node.neighbor) {
      text += Edge(nodes, key, *node.neighbor, " [style=dashed, constraint=false]");
    }
    if (key.kind == HalKind::kVrf || !node.vrf) continue;
    const auto vrf = vrfs.find(*node.vrf);
    if (vrf != vrfs.end()) text += Edge(nodes, key, vrf->second, "");
  }
  return text;
}

ObjectKey KeyOf(const nlohmann::ordered_json& json) {
  if (const auto key = ParseObjectKey(json.get<std::string>())) return *key;
  throw std::runtime_error("no object has the name " + json.dump());
}

// The targets of a node's edges.
std::vector<ObjectKey> Under(const GraphNode& node,
                             const std::map<std::uint32_t, ObjectKey>& vrfs) {
  std::vector<ObjectKey> under = node.references;
  if (node.neighbor) under.push_back(*node.neighbor);
  if (node.key.kind == HalKind::kVrf || !node.vrf) return under;
  const auto vrf = vrfs.find(*node.vrf);
  if (vrf != vrfs.end()) under.push_back(vrf->second);
  return under;
}

using Links = std::map<ObjectKey, std::vector<ObjectKey>>;

// Adds all that the links lead to from `key`, itself included, to `reached`.
void Follow(const Links& links, const ObjectKey& key, std::set<ObjectKey>* reached) {
  std::set<ObjectKey> seen = {key};
  std::vector<ObjectKey> due = {key};
  while (!due.empty()) {
    const auto found = links.find(due.back());
    due.pop_back();
    if (found == links.end()) continue;
    for (const ObjectKey& next : found->second) {
      if (seen.insert(next).second) due.push_back(next);
    }
  }
  reached->insert(seen.begin(), seen.end());
}

}  // namespace

GraphNode NodeOf(const DestDatabase& database, const Object& object) {
  GraphNode node = {object.key, object.name, StandingOf(object),     LayerOf(object.content),
                    {},         {},          VrfIdOf(object.content)};
  if (const auto* const vrf = std::get_if<dest_mng::VrfData>(&object.content)) {
    node.vrf = vrf->vrf_id;
  }
  for (const std::uint32_t id : ReferencedIds(object.content)) {
    if (const Object* const other = database.FindReferenced(id)) {
      node.references.push_back(other->key);
    }
  }
  if (const auto id = NeighborId(object.content)) node.neighbor = ObjectKey{HalKind::kHost, *id};
  return node;
}

GraphNodes NodesOf(const DestDatabase& database) {
  GraphNodes nodes;
  for (const auto& [key, object] : database.objects()) {
    if (object.state() != ObjectState::kRemoved) nodes.emplace(key, NodeOf(database, object));
  }
  return nodes;
}

nlohmann::ordered_json NodeAsJson(const GraphNode& node) {
  nlohmann::ordered_json json = {{"key", KeyText(node.key)},
                                 {"name", node.name},
                                 {"state", StandingName(node.standing)},
                                 {"layer", static_cast<int>(node.layer)}};
  json["references"] = nlohmann::ordered_json::array();
  for (const ObjectKey& key : node.references) json["references"].push_back(KeyText(key));
  if (node.neighbor) json["neighbor"] = KeyText(*node.neighbor);
  if (node.vrf) json["vrf"] = *node.vrf;
  return json;
}

GraphNode NodeOfJson(const nlohmann::ordered_json& json) {
  GraphNode node;
  node.key = KeyOf(json.at("key"));
  node.name = json.at("name").get<std::string>();
  node.standing = ParseStanding(json.at("state").get<std::string>());
  node.layer = static_cast<Layer>(json.at("layer").get<std::uint8_t>());
  for (const auto& key : json.at("references")) node.references.push_back(KeyOf(key));
  if (json.contains("neighbor")) node.neighbor = KeyOf(json.at("neighbor"));
  if (json.contains("vrf")) node.vrf = json.at("vrf").get<std::uint32_t>();
  return node;
}

GraphNodes NodesAround(const GraphNodes& nodes, const ObjectKey& key) {
  const std::map<std::uint32_t, ObjectKey> vrfs = VrfsByNumber(nodes);
  Links under;
  Links above;
  for (const auto& [from, node] : nodes) {
    under[from] = Under(node, vrfs);
    for (const ObjectKey& to : under[from]) above[to].push_back(from);
  }
  std::set<ObjectKey> reached;
  Follow(under, key, &reached);
  Follow(above, key, &reached);
  GraphNodes around;
  for (const ObjectKey& each : reached) {
    const auto node = nodes.find(each);
    if (node != nodes.end()) around.insert(*node);
  }
  return around;
}

std::vector<GraphEdge> EdgesOf(const GraphNodes& nodes) {
  const std::map<std::uint32_t, ObjectKey> vrfs = VrfsByNumber(nodes);
  std::vector<GraphEdge> edges;
  const auto add = [&](const ObjectKey& from, const ObjectKey& to, std::string_view type) {
    if (nodes.count(to) != 0) edges.push_back({from, to, type});
  };
  for (const auto& [key, node] : nodes) {
    for (const ObjectKey& reference : node.references) add(key, reference, "rides_on");
    if (node.neighbor) add(key, *node.neighbor, "neighbor");
    if (key.kind == HalKind::kVrf || !node.vrf) continue;
    const auto vrf = vrfs.find(*node.vrf);
    if (vrf != vrfs.end()) add(key, vrf->second, "vrf");
  }
  return edges;
}

std::string GraphText(const GraphNodes& nodes) {
  const HostGroups groups(nodes);
  return kHead + Legend() + Layers(nodes, groups, false) + Edges(nodes, groups) + "}\n";
}

std::string LinkedGraphText(const GraphNodes& nodes, std::size_t left_out) {
  const HostGroups groups(nodes);
  std::string text = kHead + Layers(nodes, groups, true) + Edges(nodes, groups);
  if (left_out != 0) {
    text += R"(  "left-out" [label="and )" + std::to_string(left_out) +
            R"( more", shape=plaintext, fillcolor=white, id="left-out"];)" + '\n';
  }
  return text + "}\n";
}

}  // namespace reference
