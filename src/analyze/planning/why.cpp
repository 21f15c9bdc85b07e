#include "analyze/planning/why.h"

#include <algorithm>
#include <limits>

#include "analyze/image/left_out.h"

namespace bootforge::analyze {
namespace {

using Index = WaitGraph::Index;
using Indices = WaitGraph::Indices;

// Two plugins may be tied by more chains than anybody could read.
constexpr std::size_t kMostChains = 10'000;

std::string drawn(const WaitGraph& graph, const Indices& chain) {
  std::string text;
  for (const Index index : chain) text += (text.empty() ? "" : " -> ") + graph.name(index);
  return text;
}

/// The barriers on one side of a plugin, each with the plugins on its other side; of a barrier, the
/// plugins on that side.
std::vector<Tie> tiesOf(const WaitGraph& graph, Index index,
                        const Indices& (WaitGraph::*side)(Index) const) {
  std::vector<Tie> ties;
  const auto add = [&](Index barrier, const Indices& others) {
    Tie tie{graph.name(barrier), {}};
    for (const Index other : withoutRepeats(others)) {
      if (!graph.isDone(other)) tie.plugins.push_back(graph.name(other));
    }
    ties.push_back(std::move(tie));
  };
  if (graph.isBarrier(index)) {
    add(index, (graph.*side)(index));
    return ties;
  }
  for (const Index barrier : withoutRepeats((graph.*side)(index))) {
    add(barrier, (graph.*side)(barrier));
  }
  return ties;
}

}  // namespace

std::string reasonAgainst(const Image& image, const WaitGraph& graph, const Cycles& cycles,
                          Index index) {
  if (const PluginFile* const file = image.fileOf(graph.node(index));
      file != nullptr && !file->takesPart()) {
    return reasonLeftOut(file->admission);
  }
  if (const Cycle* const cycle = cycles.around(index)) {
    return "it waits for itself: " + drawn(graph, cycle->chain);
  }
  if (const Cycle* const cycle = cycles.before(index)) {
    return "it waits behind a cycle: " + drawn(graph, cycle->chain);
  }
  if (!image.isEnumerated()) return "the boot cannot read its plugins";
  return {};
}

Reasons reasonsOf(const Image& image, const WaitGraph& graph, Index index) {
  Reasons reasons;
  reasons.name = graph.name(index);
  reasons.isBarrier = graph.isBarrier(index);
  reasons.reason = reasonAgainst(image, graph, Cycles(graph), index);
  reasons.runs = reasons.reason.empty();
  reasons.waitsFor = tiesOf(graph, index, &WaitGraph::prerequisites);
  reasons.waitedForBy = tiesOf(graph, index, &WaitGraph::dependents);
  return reasons;
}

Chains shortestChains(const WaitGraph& graph, Index from, Index to) {
  // By breadth from the end: how far everything is from it. What is left out closes no chain.
  constexpr auto kFar = std::numeric_limits<std::uint32_t>::max();
  Chains result;
  if (graph.isDone(to) || graph.isDone(from)) return result;
  std::vector<std::uint32_t> distance(graph.size(), kFar);
  distance[to] = 0;
  Indices reached{to};
  for (std::size_t i = 0; i < reached.size(); ++i) {
    for (const Index other : graph.dependents(reached[i])) {
      if (graph.isDone(other) || distance[other] != kFar) continue;
      distance[other] = distance[reached[i]] + 1;
      reached.push_back(other);
    }
  }
  // A node that waits for itself starts one step away from itself.
  std::uint32_t left = distance[from];
  if (from == to) {
    left = kFar;
    for (const Index other : graph.prerequisites(from)) {
      if (!graph.isDone(other) && distance[other] != kFar)
        left = std::min(left, distance[other] + 1);
    }
  }
  if (left == kFar) return result;

  // Downhill from the start, every way.
  struct Frame {
    Index node;
    std::size_t next;
  };
  std::vector<Frame> frames{{from, 0}};
  while (!frames.empty()) {
    Frame& frame = frames.back();
    const std::uint32_t height = left - static_cast<std::uint32_t>(frames.size() - 1);
    const Indices& all = graph.prerequisites(frame.node);
    if (height == 0) {
      Indices chain;
      for (const Frame& step : frames) chain.push_back(step.node);
      result.chains.push_back(std::move(chain));
      frames.pop_back();
      continue;
    }
    if (frame.next == all.size()) {
      frames.pop_back();
      continue;
    }
    const std::size_t place = frame.next++;
    const Index other = all[place];
    // A milestone that is named twice is one way.
    const auto end = all.begin() + static_cast<std::ptrdiff_t>(place);
    if (std::find(all.begin(), end, other) != end) continue;
    if (graph.isDone(other) || distance[other] != height - 1) continue;
    if (result.chains.size() == kMostChains) {
      result.areAll = false;
      return result;
    }
    frames.push_back({other, 0});
  }
  return result;
}

}  // namespace bootforge::analyze
