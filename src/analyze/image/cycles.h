// Plugins that wait for each other.
#pragma once

#include <cstddef>
#include <vector>

#include "analyze/image/wait_graph.h"

namespace bootforge::analyze {

/// A group of plugins all of which wait for each other, so that none of them runs.
struct Cycle {
  WaitGraph::Indices members;  // plugins only, by name
  WaitGraph::Indices chain;  // plugin, milestone, plugin, ..., and the first one again; a shortest
  std::size_t blocked = 0;   // other plugins that wait behind it
};

/// All cycles of an image, by the first member's name. Left-out plugins close none.
class Cycles {
 public:
  explicit Cycles(const WaitGraph& graph);

  const std::vector<Cycle>& all() const { return cycles_; }
  /// The cycle that a plugin or milestone is part of; null where there is none.
  const Cycle* around(WaitGraph::Index index) const;
  /// The first cycle behind which a plugin or milestone waits, without being part of it.
  const Cycle* before(WaitGraph::Index index) const;

 private:
  std::vector<Cycle> cycles_;
  WaitGraph::Indices around_;  // by node: which cycle
  WaitGraph::Indices before_;
};

}  // namespace bootforge::analyze
