#include "analyze/image/wait_graph.h"

#include <unordered_set>
#include <utility>

#include "graph/priority_barrier.h"
#include "reading/nearest.h"

namespace bootforge::analyze {
WaitGraph::WaitGraph(const Image& image) {
  const Catalogue& catalogue = image.catalogue();
  const Kind pluginKind = image.options().daemons ? Kind::Script : Kind::Plugin;
  const ScopedLock lock(graphLock);
  const auto add = [this](const Node* node, Kind kind, Node::State state) {
    nodes_.push_back(node);
    kinds_.push_back(kind);
    done_.push_back(state == Node::State::ForwardDone);
  };
  for (const PluginList* const list : {&catalogue.plugins, &catalogue.leftOut}) {
    for (const auto& plugin : *list) add(plugin.get(), pluginKind, plugin->state());
  }
  for (const InitBarrier* barrier : catalogue.barriers.allBarriers()) {
    const bool isLevel = dynamic_cast<const PriorityBarrier*>(barrier) != nullptr;
    add(barrier, isLevel ? Kind::Level : Kind::Milestone, barrier->state());
  }
  std::unordered_map<const Node*, Index> indices;
  indices.reserve(nodes_.size());
  for (Index i = 0; i < nodes_.size(); ++i) indices[nodes_[i]] = i;
  const auto indicesOf = [&indices](const Node::List& list) {
    Indices result;
    result.reserve(list.size());
    for (const Node* node : list) result.push_back(indices.at(node));
    return result;
  };
  for (const Node* node : nodes_) {
    prerequisites_.push_back(indicesOf(node->prerequisites()));
    dependents_.push_back(indicesOf(node->dependents()));
  }
}

std::optional<WaitGraph::Index> WaitGraph::find(std::string_view name) const {
  for (Index i = 0; i < nodes_.size(); ++i) {
    if (nodes_[i]->name() == name) return i;
  }
  return std::nullopt;
}

std::vector<std::string_view> WaitGraph::nearest(std::string_view name) const {
  std::vector<std::string_view> names;
  for (const Node* node : nodes_) names.push_back(node->name());
  return nearestNames(name, names);
}

std::string_view nameOf(WaitGraph::Kind kind) {
  switch (kind) {
    case WaitGraph::Kind::Plugin:
      return "plugin";
    case WaitGraph::Kind::Milestone:
      return "milestone";
    case WaitGraph::Kind::Script:
      return "script";
    case WaitGraph::Kind::Level:
      break;
  }
  return "level";
}

WaitGraph::Indices withoutRepeats(const WaitGraph::Indices& all) {
  std::unordered_set<WaitGraph::Index> seen;
  WaitGraph::Indices once;
  for (const WaitGraph::Index index : all) {
    if (seen.insert(index).second) once.push_back(index);
  }
  return once;
}

std::vector<std::string> namesOf(const WaitGraph& graph, const WaitGraph::Indices& chain) {
  std::vector<std::string> names;
  for (const WaitGraph::Index index : chain) names.push_back(graph.name(index));
  return names;
}

}  // namespace bootforge::analyze
