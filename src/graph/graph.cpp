#include "graph/graph.h"

#include <ostream>

#include "graph/barrier_registry.h"
#include "graph/executor.h"
#include "graph/init_barrier.h"

namespace bootforge {

namespace {

/// Waits for all nodes, in whatever order, as all of the waits have to return: one that begins with
/// those that tend to finish last, so that this thread is woken a few times and not once for each
/// node. They stand at one end of the list, since a directory lists its files in the order of their
/// making or the other way round.
void waitForAll(const std::vector<Node*>& nodes, void (Node::*wait)()) {
  if (nodes.empty()) return;
  (nodes.back()->*wait)();
  (nodes.front()->*wait)();
  for (auto node = nodes.rbegin(); node != nodes.rend(); ++node) ((*node)->*wait)();
}

}  // namespace

void Graph::scheduleForward(Executor& executor) const {
  ScopedLock lock(graphLock);
  for (Node* node : nodes_) node->scheduleForward(executor);
}

void Graph::scheduleReverse(Executor& executor) const {
  ScopedLock lock(graphLock);
  for (Node* node : nodes_) node->scheduleReverse(executor);
}

void Graph::runForward(Executor& executor) const {
  scheduleForward(executor);
  waitForAll(nodes_, &Node::waitForward);
}

void Graph::runReverse(Executor& executor) const {
  scheduleReverse(executor);
  waitForAll(nodes_, &Node::waitReverse);
}

void Graph::writeDot(std::ostream& out, const BarrierRegistry& barriers) const {
  out << "digraph g {" << std::endl;
  for (const Node* node : nodes_) node->writeDot(out);
  for (const InitBarrier* barrier : barriers.allBarriers()) barrier->writeDot(out);
  out << '}' << std::endl;
}

}  // namespace bootforge
