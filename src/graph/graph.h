// A whole graph: the plugins of a run, with the barriers that they named.
#pragma once

#include <iosfwd>
#include <vector>

#include "graph/node.h"

namespace bootforge {

class BarrierRegistry;
class Executor;

/// The nodes that a run is asked for, in list order; it does not own them. Barriers take part
/// because the nodes are linked to them.
class Graph {
 public:
  explicit Graph(std::vector<Node*> nodes) : nodes_(std::move(nodes)) {}

  const std::vector<Node*>& nodes() const { return nodes_; }

  /// Schedules every node, in list order, and starts none: for who takes the ready nodes out of the
  /// executor without workers.
  void scheduleForward(Executor& executor) const;
  void scheduleReverse(Executor& executor) const;

  /// Runs every node after all of its prerequisites and returns when the last one is done. No node
  /// starts before all of them have been scheduled, so the first choice is made among all that are
  /// ready. Blocks for ever when the graph has a cycle.
  void runForward(Executor& executor) const EXCLUDES(graphLock);
  /// Runs every node after all of its dependents. As runForward().
  void runReverse(Executor& executor) const EXCLUDES(graphLock);

  /// Writes the graph and every barrier of the registry in Graphviz's dot language.
  void writeDot(std::ostream& out, const BarrierRegistry& barriers) const;

 private:
  void schedule(const Node::Pass& pass, Executor& executor) const;
  void wait(const Node::Pass& pass) const EXCLUDES(graphLock);

  std::vector<Node*> nodes_;
};

}  // namespace bootforge
