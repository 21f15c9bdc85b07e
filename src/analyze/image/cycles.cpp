#include "analyze/image/cycles.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace bootforge::analyze {
namespace {

using Index = WaitGraph::Index;
using Indices = WaitGraph::Indices;

constexpr Index kNone = std::numeric_limits<Index>::max();
// Where thousands wait for each other in a tangle, looking for a shorter cycle ends some time.
constexpr std::size_t kMostSteps = 100'000'000;

/// Tarjan's algorithm, with a stack of its own: groups of more than one node that all wait for each
/// other. What is done closes no circle.
std::vector<Indices> groupsOf(const WaitGraph& graph) {
  struct Frame {
    Index node;
    std::size_t next;
  };
  std::vector<Index> number(graph.size(), kNone);
  std::vector<Index> low(graph.size(), 0);
  std::vector<char> isOpen(graph.size(), 0);
  Indices open;
  std::vector<Indices> found;
  Index count = 0;
  const auto enter = [&](Index node) {
    number[node] = low[node] = count++;
    open.push_back(node);
    isOpen[node] = 1;
  };
  for (Index root = 0; root < graph.size(); ++root) {
    if (number[root] != kNone) continue;
    std::vector<Frame> frames{{root, 0}};
    enter(root);
    while (!frames.empty()) {
      const Index node = frames.back().node;
      const Indices& others = graph.prerequisites(node);
      if (frames.back().next < others.size()) {
        const Index other = others[frames.back().next++];
        if (graph.isDone(other)) continue;
        if (number[other] == kNone) {
          enter(other);
          frames.push_back({other, 0});
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

Indices pluginsByName(const WaitGraph& graph, const Indices& group) {
  Indices plugins;
  for (const Index index : group) {
    if (!graph.isBarrier(index)) plugins.push_back(index);
  }
  std::sort(plugins.begin(), plugins.end(), [&](Index one, Index other) {
    return std::pair(graph.name(one), one) < std::pair(graph.name(other), other);
  });
  return plugins;
}

/// Looks for shortest chains in one group after the other.
class ShortestChains {
 public:
  explicit ShortestChains(const WaitGraph& graph)
      : graph_(graph), ties_(graph.size()), from_(graph.size(), kNone) {}

  /// Of the nodes of a group; `plugins` are those that may stand at its ends, the best first.
  Indices find(const Indices& group, const Indices& plugins) {
    constexpr std::size_t kShortestPossible = 3;
    enter(group);
    steps_ = 0;
    Indices best;
    for (const Index start : plugins) {
      if (!isOpen(start)) continue;
      Indices chain = throughNode(start, best.size());
      if (!chain.empty()) best = std::move(chain);
      if (best.size() == kShortestPossible || steps_ > kMostSteps) break;
      // A shorter one, if there is any, does without this node.
      close(start);
    }
    for (const Index node : group) ties_[node] = {};
    return best;
  }

 private:
  /// How many nodes of the group one still waits for, and is still waited for by.
  struct Ties {
    std::size_t before = 0;
    std::size_t behind = 0;
    bool isInGroup = false;
  };

  bool isOpen(Index node) const { return ties_[node].isInGroup; }

  void enter(const Indices& group) {
    for (const Index node : group) ties_[node].isInGroup = true;
    for (const Index node : group) {
      for (const Index other : graph_.prerequisites(node)) {
        if (!isOpen(other)) continue;
        ++ties_[node].before;
        ++ties_[other].behind;
      }
    }
  }

  /// Takes a node out, and with it each that is part of no cycle any more.
  void close(Index start) {
    Indices closed{start};
    ties_[start].isInGroup = false;
    const auto lose = [&](Index node, std::size_t Ties::*side) {
      if (isOpen(node) && --(ties_[node].*side) == 0) {
        ties_[node].isInGroup = false;
        closed.push_back(node);
      }
    };
    while (!closed.empty()) {
      const Index node = closed.back();
      closed.pop_back();
      for (const Index other : graph_.prerequisites(node)) lose(other, &Ties::behind);
      for (const Index other : graph_.dependents(node)) lose(other, &Ties::before);
    }
  }

  /// By breadth, in the direction of waiting, until a node meets itself. Empty where every such
  /// chain is as long as `limit` at least, which is 0 for none.
  Indices throughNode(Index start, std::size_t limit) {
    struct Step {
      Index node;
      std::size_t depth;
    };
    std::vector<Step> reached;
    reached.push_back({start, 1});
    Indices chain;
    for (std::size_t i = 0; i < reached.size() && chain.empty(); ++i) {
      const auto [node, depth] = reached[i];
      if (limit != 0 && depth + 1 >= limit) break;
      for (const Index other : graph_.prerequisites(node)) {
        ++steps_;
        if (!isOpen(other)) continue;
        if (other == start) {
          chain.push_back(start);
          for (Index step = node; step != start; step = from_[step]) chain.push_back(step);
          chain.push_back(start);
          std::reverse(chain.begin(), chain.end());
          break;
        }
        if (from_[other] != kNone) continue;
        from_[other] = node;
        reached.push_back({other, depth + 1});
      }
    }
    for (const Step& step : reached) from_[step.node] = kNone;
    return chain;
  }

  const WaitGraph& graph_;
  std::vector<Ties> ties_;   // of the nodes of the group at hand
  std::vector<Index> from_;  // the node before one, in the search at hand
  std::size_t steps_ = 0;
};

}  // namespace

Cycles::Cycles(const WaitGraph& graph)
    : around_(graph.size(), kNone), before_(graph.size(), kNone) {
  struct Group {
    Indices nodes;
    Indices plugins;
  };
  std::vector<Group> groups;
  for (Indices& nodes : groupsOf(graph)) {
    Indices plugins = pluginsByName(graph, nodes);
    groups.push_back({std::move(nodes), std::move(plugins)});
  }
  std::sort(groups.begin(), groups.end(), [&](const Group& one, const Group& other) {
    return graph.name(one.plugins.front()) < graph.name(other.plugins.front());
  });

  ShortestChains chains(graph);
  Indices reachedFrom(graph.size(), kNone);
  for (Index number = 0; number < groups.size(); ++number) {
    Group& group = groups[number];
    Cycle& cycle = cycles_.emplace_back();
    cycle.chain = chains.find(group.nodes, group.plugins);
    cycle.members = std::move(group.plugins);
    for (const Index node : group.nodes) around_[node] = reachedFrom[node] = number;
    Indices& reached = group.nodes;
    for (std::size_t i = 0; i < reached.size(); ++i) {
      for (const Index other : graph.dependents(reached[i])) {
        if (reachedFrom[other] == number || graph.isDone(other)) continue;
        reachedFrom[other] = number;
        reached.push_back(other);
        if (!graph.isBarrier(other)) ++cycle.blocked;
        if (before_[other] == kNone) before_[other] = number;
      }
    }
    reached = {};
  }
}

const Cycle* Cycles::around(Index index) const {
  return around_[index] == kNone ? nullptr : &cycles_[around_[index]];
}

const Cycle* Cycles::before(Index index) const {
  return before_[index] == kNone ? nullptr : &cycles_[before_[index]];
}

}  // namespace bootforge::analyze
