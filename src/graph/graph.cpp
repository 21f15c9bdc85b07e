#include "graph/graph.h"

#include <ostream>

#include "graph/barrier_registry.h"
#include "graph/executor.h"
#include "graph/init_barrier.h"

namespace bootforge {

void Graph::scheduleForward(Executor& executor) const { schedule(Node::kForward, executor); }

void Graph::scheduleReverse(Executor& executor) const { schedule(Node::kReverse, executor); }

void Graph::runForward(Executor& executor) const {
  scheduleForward(executor);
  wait(Node::kForward);
}

void Graph::runReverse(Executor& executor) const {
  scheduleReverse(executor);
  wait(Node::kReverse);
}

void Graph::schedule(const Node::Pass& pass, Executor& executor) const {
  ScopedLock lock(graphLock);
  for (Node* node : nodes_) node->schedule(pass, executor);
  if (executor.readyCount() < 2) return;
  // A choice needs the chains behind those that are ready, and these are all of the graph. From the
  // end of the list each node finds those behind it computed, where the list has the graph's order.
  for (auto node = nodes_.rbegin(); node != nodes_.rend(); ++node) (*node)->longestChain(pass);
}

// The waits have to return in whatever order. They begin with those that tend to finish last, so
// that this thread is woken a few times and not once for each node: they stand at one end of the
// list, since a directory lists its files in the order of their making or the other way round.
void Graph::wait(const Node::Pass& pass) const {
  if (nodes_.empty()) return;
  ScopedLock lock(graphLock);
  nodes_.back()->wait(pass);
  nodes_.front()->wait(pass);
  for (auto node = nodes_.rbegin(); node != nodes_.rend(); ++node) (*node)->wait(pass);
}

void Graph::writeDot(std::ostream& out, const BarrierRegistry& barriers) const {
  out << "digraph g {" << std::endl;
  for (const Node* node : nodes_) node->writeDot(out);
  for (const InitBarrier* barrier : barriers.allBarriers()) barrier->writeDot(out);
  out << '}' << std::endl;
}

}  // namespace bootforge
