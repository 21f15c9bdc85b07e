// Graphs of nodes that do nothing, in the shapes that the benchmarks schedule.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "graph/graph.h"
#include "graph/node.h"

namespace bootforge::bench {

class IdleNode : public Node {
 public:
  explicit IdleNode(std::size_t number) : Node(std::to_string(number), 1) {}
  void run(Executor& /*executor*/) override {}
  std::string dotAttributes() const override { return {}; }
};

class DrawnGraph {
 public:
  explicit DrawnGraph(std::size_t size) {
    nodes_.reserve(size);
    for (std::size_t i = 0; i < size; ++i) nodes_.push_back(std::make_unique<IdleNode>(i));
  }
  ~DrawnGraph() {
    while (!nodes_.empty()) nodes_.pop_back();
  }
  DrawnGraph(DrawnGraph&&) = default;

  /// Each node waits for the one before.
  static DrawnGraph chain(std::size_t size) {
    DrawnGraph graph(size);
    for (std::size_t i = 1; i < size; ++i) graph.link(i - 1, i);
    return graph;
  }

  /// All nodes but the last are ready at once, and the last waits for all of them.
  static DrawnGraph fan(std::size_t size) {
    DrawnGraph graph(size);
    for (std::size_t i = 0; i + 1 < size; ++i) graph.link(i, size - 1);
    return graph;
  }

  /// Layers of 100 nodes that wait for the milestone of the layer before, as boots are built.
  static DrawnGraph layered(std::size_t size) {
    constexpr std::size_t kLayer = 101;
    DrawnGraph graph(size);
    for (std::size_t first = 0; first < size; first += kLayer) {
      const std::size_t milestone = std::min(first + kLayer, size) - 1;
      for (std::size_t i = first; i < milestone; ++i) {
        if (first > 0) graph.link(first - 1, i);
        graph.link(i, milestone);
      }
      if (first == milestone && first > 0) graph.link(first - 1, milestone);
    }
    return graph;
  }

  Graph graph() const {
    std::vector<Node*> nodes;
    nodes.reserve(nodes_.size());
    for (const auto& node : nodes_) nodes.push_back(node.get());
    return Graph(std::move(nodes));
  }

 private:
  void link(std::size_t before, std::size_t after) {
    nodes_[after]->addPrerequisite(*nodes_[before]);
  }

  std::vector<std::unique_ptr<IdleNode>> nodes_;
};

}  // namespace bootforge::bench
