// In which order a boot would run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "analyze/image/image.h"
#include "analyze/image/wait_graph.h"

namespace bootforge::analyze {

/// A node that was chosen.
struct Step {
  WaitGraph::Index node = 0;
  std::uint32_t schedulingClass = 0;
  std::int32_t weight = 0;
  std::size_t tied = 0;  // others of its class and weight that were ready
};

struct Plan {
  std::vector<Step> order;
  /// Plugins of the run that wait for ever, in linking order.
  WaitGraph::Indices blocked;
};

/// Has the orchestrator's executor choose among the image's nodes, which do nothing, as one worker
/// would. The nodes are used up: an image is planned once. `graph` was made before.
Plan planBoot(Image& image, const WaitGraph& graph, bool reverse);

}  // namespace bootforge::analyze
