// A level of the start order of init scripts.
//
// Every distinct priority is a barrier, and the barriers form an ascending chain. The barrier of a
// level waits for the scripts of that level and for the barrier below; a script waits for the
// barrier of the next lower level. So each script starts after all scripts of all lower priorities.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "graph/init_barrier.h"

namespace bootforge {

class BarrierRegistry;

class PriorityBarrier : public InitBarrier {
 public:
  explicit PriorityBarrier(std::uint32_t priority);

  /// A level never reports anything.
  void run(Executor& /*executor*/) override {}
  std::string dotAttributes() const override { return " shape=trapezium"; }

  std::uint32_t priority() const { return priority_; }

 private:
  friend PriorityBarrier& priorityBarrierFor(BarrierRegistry& barriers, std::uint32_t priority);
  friend void attachToPriority(BarrierRegistry& barriers, PriorityBarrier& barrier, Node& script);

  /// Takes its place in the chain of levels; below a level that has scripts already, it comes
  /// between them and the level under it.
  void joinLevels(BarrierRegistry& barriers) REQUIRES(graphLock);

  /// The plugins among the prerequisites, in list order.
  const List& plugins() REQUIRES(graphLock);

  std::int32_t levelIndex_ GUARDED_BY(graphLock) = -1;  // where the list of levels last held it
  // What plugins() has found among so many prerequisites. A level below which thousands are made
  // has thousands of them: it is not walked from the front for each.
  List plugins_ GUARDED_BY(graphLock);
  std::size_t looked_ GUARDED_BY(graphLock) = 0;
  std::size_t destroyedBefore_ GUARDED_BY(graphLock) = 0;
  const std::uint32_t priority_;
};

/// The name under which the level of a priority is registered.
std::string priorityBarrierName(std::uint32_t priority);

/// The level of a priority, made when there is none yet. Takes the graph lock.
PriorityBarrier& priorityBarrierFor(BarrierRegistry& barriers, std::uint32_t priority);

/// Puts a script on its level. Takes the graph lock.
void attachToPriority(BarrierRegistry& barriers, PriorityBarrier& barrier, Node& script);

}  // namespace bootforge
