// Graphs of nodes that do nothing, in the shapes that the benchmarks schedule.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "graph/graph.h"
#include "graph/node.h"

namespace bootforge::bench {

/// Which nodes wait for which, by number: whose schedulers are compared get the same.
struct Drawing {
  std::size_t size = 0;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> edges;  // before, after

  void link(std::size_t before, std::size_t after) {
    edges.emplace_back(static_cast<std::uint32_t>(before), static_cast<std::uint32_t>(after));
  }

  /// Each node waits for the one before.
  static Drawing chain(std::size_t size) {
    Drawing drawing{size, {}};
    for (std::size_t i = 1; i < size; ++i) drawing.link(i - 1, i);
    return drawing;
  }

  /// All nodes but the last are ready at once, and the last waits for all of them.
  static Drawing fan(std::size_t size) {
    Drawing drawing{size, {}};
    for (std::size_t i = 0; i + 1 < size; ++i) drawing.link(i, size - 1);
    return drawing;
  }

  /// Layers of 100 nodes; each node waits for one to three of the layer before.
  static Drawing layers(std::size_t size) {
    constexpr std::size_t kLayer = 100;
    Drawing drawing{size, {}};
    std::mt19937 draw(1);
    for (std::size_t i = kLayer; i < size; ++i) {
      const std::size_t before = (i / kLayer - 1) * kLayer;
      const std::size_t first = draw() % kLayer;
      const std::size_t count = 1 + draw() % 3;
      for (std::size_t j = 0; j < count; ++j) drawing.link(before + (first + 7 * j) % kLayer, i);
    }
    return drawing;
  }

  /// Layers of 100 nodes that wait for the milestone of the layer before, as boots are built.
  static Drawing milestones(std::size_t size) {
    constexpr std::size_t kLayer = 101;
    Drawing drawing{size, {}};
    for (std::size_t first = 0; first < size; first += kLayer) {
      const std::size_t milestone = std::min(first + kLayer, size) - 1;
      for (std::size_t i = first; i < milestone; ++i) {
        if (first > 0) drawing.link(first - 1, i);
        drawing.link(i, milestone);
      }
      if (first == milestone && first > 0) drawing.link(first - 1, milestone);
    }
    return drawing;
  }
};

class IdleNode : public Node {
 public:
  explicit IdleNode(std::size_t number) : Node(std::to_string(number), 1) {}
  void run(Executor& /*executor*/) override {}
  std::string dotAttributes() const override { return {}; }
};

class DrawnGraph {
 public:
  explicit DrawnGraph(const Drawing& drawing) {
    nodes_.reserve(drawing.size);
    for (std::size_t i = 0; i < drawing.size; ++i) {
      nodes_.push_back(std::make_unique<IdleNode>(i));
    }
    for (const auto& [before, after] : drawing.edges) {
      nodes_[after]->addPrerequisite(*nodes_[before]);
    }
  }
  ~DrawnGraph() {
    while (!nodes_.empty()) nodes_.pop_back();
  }
  DrawnGraph(const DrawnGraph&) = delete;
  DrawnGraph& operator=(const DrawnGraph&) = delete;

  Graph graph() const {
    std::vector<Node*> nodes;
    nodes.reserve(nodes_.size());
    for (const auto& node : nodes_) nodes.push_back(node.get());
    return Graph(std::move(nodes));
  }

 private:
  std::vector<std::unique_ptr<IdleNode>> nodes_;
};

}  // namespace bootforge::bench
