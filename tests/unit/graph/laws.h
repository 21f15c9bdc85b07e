// What has to hold whenever several workers run a graph, in whatever order they come.
#pragma once

#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/graph/sketch.h"

namespace bootforge::test {

enum class Direction { kForward, kReverse };

/// A worker has begun a node's work, or ended it. Events stand in the order in which they were
/// noted, each while no graph lock was held.
struct Event {
  std::thread::id worker;
  std::size_t node;
  bool isEnd;
};

/// The first law that a whole run of the graph has broken; empty when there is none:
///
/// - every node is begun once and ended once, by the same worker, and nothing else is;
/// - a worker ends what it has begun before it begins something else, and there are no more workers
///   than `workers`;
/// - a node begins when all that it waits for have ended;
/// - a worker takes the best node: none of a lower class, or of the same class and a greater
/// weight,
///   that was certainly in the queue then.
std::string brokenLaw(const Sketch& sketch, Direction direction, std::size_t workers,
                      const std::vector<Event>& events);

}  // namespace bootforge::test
