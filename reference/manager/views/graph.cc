#include "reference/manager/views/graph.h"

#include <array>
#include <functional>
#include <map>
#include <set>
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

std::string_view FillOf(const Object& object) {
  const Standing standing = StandingOf(object);
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
  }
  return quoted + '"';
}

std::string NodeId(const ObjectKey& key) { return Quoted(KeyText(key)); }

std::string Node(const Object& object) {
  // Labels need a literal "\n", so it must not be escaped.
  std::string label = Quoted(object.name);
  label.insert(label.size() - 1, "\\n" + KeyText(object.key));
  return NodeId(object.key) + " [label=" + label +
         ", shape=" + std::string(ShapeOf(LayerOf(object.content))) + ", fillcolor=\"" +
         std::string(FillOf(object)) + "\"];\n";
}

std::string Edge(const Object& from, const Object* to, const char* attributes) {
  if (to == nullptr || to->state() == ObjectState::kRemoved) return {};
  return "  " + NodeId(from.key) + " -> " + NodeId(to->key) + attributes + ";\n";
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
  using Group = std::vector<const Object*>;

  explicit HostGroups(const DestDatabase& database) {
    const std::set<std::uint32_t> referenced = Referenced(database);
    for (const auto& [key, object] : database.objects()) {
      if (key.kind != HalKind::kHost || object.state() == ObjectState::kRemoved) continue;
      const auto vlans = ReferencedIds(object.content);
      if (vlans.size() != 1 || referenced.count(key.id) != 0) continue;
      groups_[{vlans.front(), StandingOf(object)}].push_back(&object);
    }
    for (auto group = groups_.begin(); group != groups_.end();) {
      group = group->second.size() < kLeast ? groups_.erase(group) : std::next(group);
    }
    for (const auto& [place, group] : groups_) {
      for (const Object* const host : group) members_.insert(host->key.id);
    }
  }

  bool Contains(const ObjectKey& key) const {
    return key.kind == HalKind::kHost && members_.count(key.id) != 0;
  }

  std::string Nodes() const {
    std::string text;
    for (const auto& [place, group] : groups_) {
      std::string label = Quoted(group.front()->name + " ... " + group.back()->name);
      label.insert(label.size() - 1, "\\n" + std::to_string(group.size()) + " hosts");
      text += "    " + Id(group) + " [label=" + label +
              ", shape=" + std::string(ShapeOf(Layer::kHost)) + ", peripheries=2, fillcolor=\"" +
              std::string(FillOf(*group.front())) + "\"];\n";
    }
    return text;
  }

  std::string Edges() const {
    std::string text;
    for (const auto& [place, group] : groups_) {
      text += "  " + Id(group) + " -> " + NodeId({HalKind::kVlan, place.first}) + ";\n";
    }
    return text;
  }

 private:
  static constexpr std::size_t kLeast = 4;

  static std::string Id(const Group& group) {
    return Quoted("hosts from " + KeyText(group.front()->key));
  }

  static std::set<std::uint32_t> Referenced(const DestDatabase& database) {
    std::set<std::uint32_t> ids;
    for (const auto& [key, object] : database.objects()) {
      if (object.state() == ObjectState::kRemoved) continue;
      for (const std::uint32_t id : ReferencedIds(object.content)) ids.insert(id);
      if (const auto neighbor = NeighborId(object.content)) ids.insert(*neighbor);
    }
    return ids;
  }

  // By VLAN and state.
  std::map<std::pair<std::uint32_t, Standing>, Group> groups_;
  std::set<std::uint32_t> members_;
};

std::string Layers(const DestDatabase& database, const HostGroups& groups) {
  // From objects that nothing refers to, on the left, to objects that refer to nothing.
  std::map<Layer, std::string, std::greater<>> nodes;
  for (const auto& [key, object] : database.objects()) {
    if (object.state() == ObjectState::kRemoved || groups.Contains(key)) continue;
    nodes[LayerOf(object.content)] += "    " + Node(object);
  }
  nodes[Layer::kHost] += groups.Nodes();
  std::string text;
  for (const auto& [layer, drawn] : nodes) {
    if (!drawn.empty()) text += "  {\n    rank=same;\n" + drawn + "  }\n";
  }
  return text;
}

std::map<std::uint32_t, const Object*> VrfsByNumber(const DestDatabase& database) {
  std::map<std::uint32_t, const Object*> vrfs;
  for (const auto& [key, object] : database.objects()) {
    const auto* const vrf = std::get_if<dest_mng::VrfData>(&object.content);
    if (vrf != nullptr && object.state() != ObjectState::kRemoved) {
      vrfs.emplace(vrf->vrf_id, &object);
    }
  }
  return vrfs;
}

std::string Edges(const DestDatabase& database, const HostGroups& groups) {
  const std::map<std::uint32_t, const Object*> vrfs = VrfsByNumber(database);
  std::string text = groups.Edges();
  for (const auto& [key, object] : database.objects()) {
    if (object.state() == ObjectState::kRemoved || groups.Contains(key)) continue;
    for (const std::uint32_t id : ReferencedIds(object.content)) {
      text += Edge(object, database.FindReferenced(id), "");
    }
    if (const auto neighbor = NeighborId(object.content)) {
      text += Edge(object, database.Find({HalKind::kHost, *neighbor}),
                   " [style=dashed, constraint=false]");
    }
    if (const auto number = VrfIdOf(object.content)) {
      const auto vrf = vrfs.find(*number);
      if (vrf != vrfs.end()) text += Edge(object, vrf->second, "");
    }
  }
  return text;
}

}  // namespace

std::string GraphText(const DestDatabase& database) {
  const HostGroups groups(database);
  return kHead + Legend() + Layers(database, groups) + Edges(database, groups) + "}\n";
}

}  // namespace reference
