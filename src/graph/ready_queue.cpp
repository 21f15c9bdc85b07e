#include "graph/ready_queue.h"

#include <bit>
#include <cstdlib>
#include <utility>

namespace bootforge {

void ReadyQueue::sort(Node& node) {
  const Key key{node.schedulingClass(), node.schedulingWeight()};
  if (latest_ == groups_.end() || latest_->first != key) {
    const auto place = groups_.lower_bound(key);
    if (place != groups_.end() && place->first == key) {
      latest_ = place;
    } else if (spare_.empty()) {
      latest_ = groups_.try_emplace(place, key);
    } else {
      Groups::node_type group = std::move(spare_.back());
      spare_.pop_back();
      group.key() = key;
      latest_ = groups_.insert(place, std::move(group));
    }
  }
  latest_->second.append(node, randomize_);
}

ReadyQueue::Choice ReadyQueue::pop() {
  if (empty()) return {};
  const std::size_t draw = randomize_ ? static_cast<std::size_t>(std::rand()) : 0;
  if (size() == 1 && sorted_ == 0) {
    Node* const only = arrivals_.back();
    arrivals_.clear();
    return {only, 0};
  }
  for (Node* node : arrivals_) sort(*node);
  sorted_ += arrivals_.size();
  arrivals_.clear();
  --sorted_;
  const auto best = groups_.begin();
  Peers& peers = best->second;
  Node* const node = randomize_ ? peers.take(draw % peers.present) : peers.takeFirst();
  const std::size_t equals = peers.present;
  if (equals == 0) retire(best);
  return {node, equals};
}

void ReadyQueue::retire(Groups::iterator group) {
  constexpr std::size_t kSpareGroups = 64;
  if (latest_ == group) latest_ = groups_.end();
  group->second.nodes.clear();
  group->second.counts.clear();
  group->second.front = 0;
  auto handle = groups_.extract(group);
  if (spare_.size() < kSpareGroups) spare_.push_back(std::move(handle));
}

void ReadyQueue::Peers::append(Node& node, bool counted) {
  // Room that first-come choices have left at the front is used again before the vector grows, at
  // most once for as many entries as it holds.
  if (nodes.size() == nodes.capacity() && nodes.size() > 2 * present) {
    if (counted) {
      std::erase(nodes, nullptr);
      counts.clear();
    } else {
      nodes.erase(nodes.begin(), nodes.begin() + static_cast<std::ptrdiff_t>(front));
      front = 0;
    }
  }
  nodes.push_back(&node);
  ++present;
  if (!counted) return;
  if (counts.size() + 1 != nodes.size()) {
    recount();
    return;
  }
  // Entry i (from 1) of a Fenwick tree counts the lowbit(i) entries that end with it.
  const std::size_t position = nodes.size();
  const std::size_t run = position & (~position + 1);
  std::uint32_t count = 1;
  for (std::size_t part = 1; part < run; part <<= 1) count += counts[position - part - 1];
  counts.push_back(count);
}

void ReadyQueue::Peers::recount() {
  counts.assign(nodes.size(), 1);
  for (std::size_t position = 1; position <= nodes.size(); ++position) {
    const std::size_t next = position + (position & (~position + 1));
    if (next <= nodes.size()) counts[next - 1] += counts[position - 1];
  }
}

Node* ReadyQueue::Peers::takeFirst() {
  --present;
  return nodes[front++];
}

Node* ReadyQueue::Peers::take(std::size_t index) {
  // Down the tree to the last position with at most `index` entries before it.
  std::size_t position = 0;
  for (std::size_t step = std::bit_floor(nodes.size()); step > 0; step >>= 1) {
    if (position + step <= nodes.size() && counts[position + step - 1] <= index) {
      position += step;
      index -= counts[position - 1];
    }
  }
  for (std::size_t above = position + 1; above <= nodes.size(); above += above & (~above + 1)) {
    --counts[above - 1];
  }
  --present;
  return std::exchange(nodes[position], nullptr);
}

}  // namespace bootforge
