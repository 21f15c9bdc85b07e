// An image's graph in the dot language.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "analyze/image/image.h"
#include "analyze/image/wait_graph.h"

namespace bootforge::analyze {

/// A part of the graph: what is at most `depth` edges from a node.
struct Part {
  WaitGraph::Index around;
  std::size_t depth;
};

/// The orchestrator's dump with names escaped, blocked and left-out plugins marked with the reason.
std::string drawGraph(const Image& image, const WaitGraph& graph, const std::optional<Part>& part);

}  // namespace bootforge::analyze
