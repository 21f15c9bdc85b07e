#include "analyze/planning/plan.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "graph/executor.h"
#include "graph/graph.h"

namespace bootforge::analyze {
namespace {

/// The weight of each node, for people to see: the longest chain behind it. The nodes are not
/// asked, since a boot does not ask those that it has no choice about, and where a cycle has a
/// member that is left out the first to be asked decides what others answer. An edge that closes a
/// cycle counts for nothing.
std::vector<std::int32_t> weightsOf(const WaitGraph& graph, bool reverse) {
  constexpr std::int32_t kUnknown = -1;
  constexpr std::int32_t kOpen = -2;
  struct Frame {
    WaitGraph::Index node;
    std::size_t next;
    std::int32_t longest;
  };
  std::vector<std::int32_t> weights(graph.size(), kUnknown);
  std::vector<Frame> frames;
  for (WaitGraph::Index start = 0; start < graph.size(); ++start) {
    if (weights[start] != kUnknown) continue;
    frames.push_back({start, 0, 0});
    while (!frames.empty()) {
      Frame& frame = frames.back();
      weights[frame.node] = kOpen;
      const auto& behind = reverse ? graph.prerequisites(frame.node) : graph.dependents(frame.node);
      while (frame.next < behind.size() && weights[behind[frame.next]] != kUnknown) {
        const std::int32_t known = weights[behind[frame.next++]];
        if (known != kOpen) frame.longest = std::max(frame.longest, known + 1);
      }
      if (frame.next < behind.size()) {
        frames.push_back({behind[frame.next], 0, 0});
        continue;
      }
      weights[frame.node] = frame.longest;
      frames.pop_back();
    }
  }
  return weights;
}

}  // namespace

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

  const std::vector<std::int32_t> weights = weightsOf(graph, reverse);
  const ScopedLock lock(graphLock);
  for (;;) {
    const ReadyQueue::Choice choice = executor.take();
    if (choice.node == nullptr) break;
    const WaitGraph::Index index = indices.at(choice.node);
    plan.order.push_back({index, choice.node->schedulingClass(), weights[index], choice.equals});
    executor.complete(*choice.node);
  }
  const Node::State done = reverse ? Node::State::ReverseDone : Node::State::ForwardDone;
  for (const Node* node : run.nodes()) {
    if (node->state() != done) plan.blocked.push_back(indices.at(node));
  }
  return plan;
}

}  // namespace bootforge::analyze
