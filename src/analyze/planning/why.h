// What a plugin waits for, and why.
#pragma once

#include <string>
#include <vector>

#include "analyze/image/cycles.h"
#include "analyze/image/image.h"
#include "analyze/image/wait_graph.h"

namespace bootforge::analyze {

/// A milestone or level between a plugin and others.
struct Tie {
  std::string milestone;
  std::vector<std::string> plugins;
};

struct Reasons {
  std::string name;
  bool isBarrier = false;  // a milestone or level: it is reached
  bool runs = true;
  std::string reason;  // what keeps it from running or being reached; empty when nothing does
  std::vector<Tie> waitsFor;
  std::vector<Tie> waitedForBy;
};

/// Of one node. Plugins that are left out are not among those that it waits for.
Reasons reasonsOf(const Image& image, const WaitGraph& graph, WaitGraph::Index index);

struct Chains {
  std::vector<WaitGraph::Indices> chains;
  bool areAll = true;  // false when there are more than can be listed
};

/// All shortest chains by which one node waits for another, from the one that waits. None when it
/// does not wait for it.
Chains shortestChains(const WaitGraph& graph, WaitGraph::Index from, WaitGraph::Index to);

/// Why a plugin of the run never starts, or why it is left out, or why a milestone is never
/// reached; empty when it runs or is reached.
std::string reasonAgainst(const Image& image, const WaitGraph& graph, const Cycles& cycles,
                          WaitGraph::Index index);

}  // namespace bootforge::analyze
