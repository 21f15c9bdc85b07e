#include "graph/priority_barrier.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "graph/barrier_registry.h"
// Looks up, because a new level between others takes over the scripts, and only those, that wait
// for the level above it: a script is recognised by being a plugin.
#include "plugins/plugin.h"

namespace bootforge {
namespace {

// The barrier of a level that stands in the list; each is registered, so it is always found.
PriorityBarrier& barrierOf(BarrierRegistry& barriers, std::uint32_t priority) {
  return dynamic_cast<PriorityBarrier&>(
      *barriers.lookupBarrier(priorityBarrierName(priority), false));
}

}  // namespace

PriorityBarrier::PriorityBarrier(std::uint32_t priority)
    : InitBarrier(priorityBarrierName(priority)), priority_(priority) {}

void PriorityBarrier::joinLevels(BarrierRegistry& barriers) {
  auto& list = barriers.levels();
  const auto place = list.insert(std::lower_bound(list.begin(), list.end(), priority_), priority_);
  if (place != list.begin()) addPrerequisite(barrierOf(barriers, *std::prev(place)));
  if (std::next(place) != list.end()) {
    PriorityBarrier& higher = barrierOf(barriers, *std::next(place));
    for (Node* plugin : higher.plugins()) addDependent(*plugin);
    addDependent(higher);
  }
}

const Node::List& PriorityBarrier::plugins() {
  if (destroyedBefore_ != destroyedCount()) {
    destroyedBefore_ = destroyedCount();
    plugins_.clear();
    looked_ = 0;
  }
  for (const List& all = prerequisites(); looked_ < all.size(); ++looked_) {
    if (dynamic_cast<Plugin*>(all[looked_]) != nullptr) plugins_.push_back(all[looked_]);
  }
  return plugins_;
}

std::string priorityBarrierName(std::uint32_t priority) {
  return "_<->_priority_<->_" + std::to_string(priority);
}

PriorityBarrier& priorityBarrierFor(BarrierRegistry& barriers, std::uint32_t priority) {
  ScopedLock lock(graphLock);
  InitBarrier* const known = barriers.lookupBarrier(priorityBarrierName(priority), false);
  if (auto* const barrier = dynamic_cast<PriorityBarrier*>(known)) return *barrier;
  auto& barrier =
      static_cast<PriorityBarrier&>(barriers.adopt(std::make_unique<PriorityBarrier>(priority)));
  barrier.joinLevels(barriers);
  barriers.registerBarrier(barrier, barrier.name());
  return barrier;
}

void attachToPriority(BarrierRegistry& barriers, PriorityBarrier& barrier, Node& script) {
  ScopedLock lock(graphLock);
  const auto& list = barriers.levels();
  auto index = static_cast<std::size_t>(barrier.levelIndex_);
  if (index >= list.size() || list[index] != barrier.priority_) {
    index = static_cast<std::size_t>(std::lower_bound(list.begin(), list.end(), barrier.priority_) -
                                     list.begin());
    barrier.levelIndex_ = static_cast<std::int32_t>(index);
  }
  if (index > 0) barrierOf(barriers, list[index - 1]).addDependent(script);
  barrier.addPrerequisite(script);
}

}  // namespace bootforge
