#include "analyze/planning/plan.h"

#include <unordered_map>
#include <vector>

#include "graph/executor.h"
#include "graph/graph.h"

namespace bootforge::analyze {

Plan planBoot(Image& image, const WaitGraph& graph, bool reverse) {
  Plan plan;
  if (!image.isEnumerated()) return plan;
  std::unordered_map<const Node*, WaitGraph::Index> indices;
  for (WaitGraph::Index i = 0; i < graph.size(); ++i) indices[&graph.node(i)] = i;

  std::vector<Node*> nodes;
  for (const auto& plugin : image.catalogue().plugins) nodes.push_back(plugin.get());
  const Graph run(std::move(nodes));
  Executor executor(0, false);
  reverse ? run.scheduleReverse(executor) : run.scheduleForward(executor);

  std::vector<Node*> chosen;
  const ScopedLock lock(graphLock);
  for (;;) {
    const ReadyQueue::Choice choice = executor.take();
    if (choice.node == nullptr) break;
    plan.order.push_back(
        {indices.at(choice.node), choice.node->schedulingClass(), 0, choice.equals});
    executor.complete(*choice.node);
    chosen.push_back(choice.node);
  }
  // Not before the end: a boot does not ask for the weight of a node that it has no choice about.
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    plan.order[i].weight = reverse ? chosen[i]->reverseWeight() : chosen[i]->forwardWeight();
  }
  const Node::State done = reverse ? Node::State::ReverseDone : Node::State::ForwardDone;
  for (const Node* node : run.nodes()) {
    if (node->state() != done) plan.blocked.push_back(indices.at(node));
  }
  return plan;
}

}  // namespace bootforge::analyze
