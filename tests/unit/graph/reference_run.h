// A run of a graph by the plainest means: a walk of every list, a walk of the whole queue for every
// choice, recursion. What the tests compare the real one with.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <vector>

namespace bootforge::test {

struct ReferenceNode {
  std::uint32_t schedulingClass = 1;
  std::vector<std::size_t> prerequisites;
  std::vector<std::size_t> dependents;
  int state = 0;
};

class ReferenceRun {
 public:
  ReferenceRun(std::vector<ReferenceNode> nodes, bool randomize)
      : nodes_(std::move(nodes)), randomize_(randomize) {
    for (std::size_t node = 0; node < nodes_.size(); ++node) {
      heights_.push_back(-1);
      depths_.push_back(-1);
    }
  }

  void scheduleForward(std::size_t node) { schedule(node, 1, 3, 5); }
  void scheduleReverse(std::size_t node) { schedule(node, 2, 4, 6); }
  void markForwardDone(std::size_t node) { nodes_[node].state = 5; }

  /// Runs the best node; false when none is ready.
  bool step() {
    if (queue_.empty()) return false;
    const std::size_t node = choose();
    queue_.remove(node);
    completed_.push_back(node);
    if (nodes_[node].state == 3) {
      nodes_[node].state = 5;
      for (const std::size_t next : nodes_[node].dependents) {
        if (nodes_[next].state == 1) scheduleForward(next);
      }
    } else {
      nodes_[node].state = 6;
      for (const std::size_t next : nodes_[node].prerequisites) {
        if (nodes_[next].state == 2) scheduleReverse(next);
      }
    }
    return true;
  }

  int state(std::size_t node) const { return nodes_[node].state; }
  const std::vector<std::size_t>& completed() const { return completed_; }

 private:
  void schedule(std::size_t node, int waiting, int queued, int done) {
    if (nodes_[node].state == queued || nodes_[node].state == done) return;
    if (nodes_[node].state == 0) nodes_[node].state = waiting;
    bool ready = true;
    for (const std::size_t other :
         waiting == 1 ? nodes_[node].prerequisites : nodes_[node].dependents) {
      const int state = nodes_[other].state;
      if (state == 0) schedule(other, waiting, queued, done);
      if (state == 0 || state == waiting || state == queued) ready = false;
    }
    if (!ready) return;
    nodes_[node].state = queued;
    queue_.push_back(node);
  }

  std::size_t choose() {
    std::uint64_t bestClass = UINT64_MAX;
    int bestWeight = -1;
    std::vector<std::size_t> candidates;
    for (const std::size_t node : queue_) {
      const std::uint32_t schedulingClass = nodes_[node].schedulingClass;
      const int nodeWeight = weight(node);
      if (schedulingClass < bestClass ||
          (schedulingClass == bestClass && nodeWeight > bestWeight)) {
        bestClass = schedulingClass;
        bestWeight = nodeWeight;
        candidates.clear();
      } else if (schedulingClass > bestClass || nodeWeight < bestWeight) {
        continue;
      }
      candidates.push_back(node);
    }
    if (!randomize_) return candidates.front();
    return candidates[static_cast<std::size_t>(std::rand()) % candidates.size()];
  }

  int weight(std::size_t node) {
    return nodes_[node].state == 3 ? length(node, &ReferenceNode::dependents, heights_)
                                   : length(node, &ReferenceNode::prerequisites, depths_);
  }

  int length(std::size_t node, std::vector<std::size_t> ReferenceNode::*next,
             std::vector<int>& known) {
    if (known[node] >= 0) return known[node];
    int longest = 0;
    for (const std::size_t other : nodes_[node].*next) {
      longest = std::max(longest, 1 + length(other, next, known));
    }
    return known[node] = longest;
  }

  std::vector<ReferenceNode> nodes_;
  const bool randomize_;
  std::vector<int> heights_;
  std::vector<int> depths_;
  std::list<std::size_t> queue_;
  std::vector<std::size_t> completed_;
};

}  // namespace bootforge::test
