#include "analyze/image/wait_graph.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "graph/priority_barrier.h"
#include "reading/nearest.h"

namespace bootforge::analyze {
namespace {

constexpr WaitGraph::Index kNone = std::numeric_limits<WaitGraph::Index>::max();
// Where thousands wait for each other in a tangle, looking for a shorter cycle ends some time.
constexpr std::size_t kMostSteps = 100'000'000;

}  // namespace

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

// Tarjan's algorithm, with a stack of its own: groups of more than one node that all wait for each
// other. What is done closes no circle.
std::vector<WaitGraph::Indices> WaitGraph::groups() const {
  struct Frame {
    Index node;
    std::size_t next;
  };
  std::vector<Index> number(size(), kNone);
  std::vector<Index> low(size(), 0);
  std::vector<char> isOpen(size(), 0);
  Indices open;
  std::vector<Indices> found;
  Index count = 0;
  for (Index start = 0; start < size(); ++start) {
    if (number[start] != kNone || isDone(start)) continue;
    std::vector<Frame> frames;
    const auto enter = [&](Index node) {
      number[node] = low[node] = count++;
      open.push_back(node);
      isOpen[node] = 1;
      frames.push_back({node, 0});
    };
    enter(start);
    while (!frames.empty()) {
      Frame& frame = frames.back();
      const Index node = frame.node;
      if (frame.next < prerequisites_[node].size()) {
        const Index other = prerequisites_[node][frame.next++];
        if (isDone(other)) continue;
        if (number[other] == kNone) {
          enter(other);
        } else if (isOpen[other]) {
          low[node] = std::min(low[node], number[other]);
        }
        continue;
      }
      frames.pop_back();
      if (!frames.empty()) low[frames.back().node] = std::min(low[frames.back().node], low[node]);
      if (low[node] != number[node]) continue;
      Indices group;
      Index member = kNone;
      do {
        member = open.back();
        open.pop_back();
        isOpen[member] = 0;
        group.push_back(member);
      } while (member != node);
      if (group.size() > 1) found.push_back(std::move(group));
    }
  }
  return found;
}

WaitGraph::Indices WaitGraph::plugins(const Indices& indices) const {
  Indices result;
  for (const Index index : indices) {
    if (!isBarrier(index)) result.push_back(index);
  }
  std::sort(result.begin(), result.end(), [this](Index one, Index other) {
    return std::pair(name(one), one) < std::pair(name(other), other);
  });
  return result;
}

// From each member by breadth, in the direction of waiting, until it meets itself.
WaitGraph::Indices WaitGraph::shortestChain(const Indices& members,
                                            const std::vector<char>& isInGroup) const {
  constexpr std::size_t kShortestPossible = 3;
  Indices best;
  std::vector<Index> from(size(), kNone);
  std::size_t steps = 0;
  for (const Index start : members) {
    Indices reached{start};
    std::vector<std::size_t> depth{1};
    bool isClosed = false;
    for (std::size_t i = 0; i < reached.size() && !isClosed; ++i) {
      if (!best.empty() && depth[i] + 1 >= best.size()) break;
      for (const Index other : prerequisites_[reached[i]]) {
        ++steps;
        if (!isInGroup[other]) continue;
        if (other == start) {
          Indices chain{start};
          for (Index node = reached[i]; node != start; node = from[node]) chain.push_back(node);
          chain.push_back(start);
          std::reverse(chain.begin(), chain.end());
          best = std::move(chain);
          isClosed = true;
          break;
        }
        if (from[other] != kNone) continue;
        from[other] = reached[i];
        reached.push_back(other);
        depth.push_back(depth[i] + 1);
      }
    }
    for (const Index node : reached) from[node] = kNone;
    if (best.size() == kShortestPossible || steps > kMostSteps) break;
  }
  return best;
}

WaitGraph::Indices WaitGraph::blockedBehind(const Indices& group) const {
  std::vector<char> isReached(size(), 0);
  for (const Index member : group) isReached[member] = 1;
  Indices reached = group;
  Indices blocked;
  for (std::size_t i = 0; i < reached.size(); ++i) {
    for (const Index other : dependents_[reached[i]]) {
      if (isReached[other] || isDone(other)) continue;
      isReached[other] = 1;
      reached.push_back(other);
      if (!isBarrier(other)) blocked.push_back(other);
    }
  }
  std::sort(blocked.begin(), blocked.end());
  return blocked;
}

std::vector<WaitGraph::Cycle> WaitGraph::cycles() const {
  std::vector<Cycle> cycles;
  std::vector<char> isInGroup(size(), 0);
  for (const Indices& group : groups()) {
    for (const Index member : group) isInGroup[member] = 1;
    Cycle cycle;
    cycle.members = plugins(group);
    cycle.chain = shortestChain(cycle.members, isInGroup);
    cycle.blocked = blockedBehind(group);
    for (const Index member : group) isInGroup[member] = 0;
    cycles.push_back(std::move(cycle));
  }
  std::sort(cycles.begin(), cycles.end(), [this](const Cycle& one, const Cycle& other) {
    return name(one.members.front()) < name(other.members.front());
  });
  return cycles;
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

std::vector<std::string> namesOf(const WaitGraph& graph, const WaitGraph::Indices& chain) {
  std::vector<std::string> names;
  for (const WaitGraph::Index index : chain) names.push_back(graph.name(index));
  return names;
}

}  // namespace bootforge::analyze
