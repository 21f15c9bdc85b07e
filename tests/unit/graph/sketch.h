// Graphs drawn at random, as plain data: what the tests build nodes from, and make smaller when
// something is wrong with them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace bootforge::test {

using Generator = std::mt19937;

inline std::size_t below(Generator& generator, std::size_t limit) { return generator() % limit; }

struct Sketch {
  std::vector<std::uint32_t> classes;                      // of each node
  std::vector<std::pair<std::size_t, std::size_t>> edges;  // from prerequisites to dependents

  /// As "0:1 1:3 0>1": nodes with their classes, then the edges.
  std::string text() const {
    std::string text;
    for (std::size_t node = 0; node < classes.size(); ++node) {
      text += (node == 0 ? "" : " ") + std::to_string(node) + ":" + std::to_string(classes[node]);
    }
    for (const auto& [before, after] : edges) {
      text += " " + std::to_string(before) + ">" + std::to_string(after);
    }
    return text;
  }

  /// The same without a node and its edges.
  Sketch withoutNode(std::size_t gone) const {
    Sketch smaller{classes, {}};
    smaller.classes.erase(smaller.classes.begin() + static_cast<std::ptrdiff_t>(gone));
    for (const auto& [before, after] : edges) {
      if (before == gone || after == gone) continue;
      smaller.edges.emplace_back(before - (before > gone), after - (after > gone));
    }
    return smaller;
  }

  Sketch withoutEdge(std::size_t gone) const {
    Sketch smaller = *this;
    smaller.edges.erase(smaller.edges.begin() + static_cast<std::ptrdiff_t>(gone));
    return smaller;
  }
};

/// A graph without cycles: edges go up a random order. Sparse, dense and layered ones come about,
/// double edges too.
inline Sketch sketchAtRandom(Generator& generator, std::size_t largest) {
  Sketch sketch;
  const std::size_t count = 1 + below(generator, largest);
  const bool manyClasses = below(generator, 2) == 0;
  for (std::size_t node = 0; node < count; ++node) {
    sketch.classes.push_back(manyClasses ? static_cast<std::uint32_t>(1 + below(generator, 3)) : 1);
  }
  std::vector<std::size_t> order(count);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), generator);
  const std::size_t edges = below(generator, 2 * count + 1);
  const std::size_t reach = 1 + below(generator, count);
  for (std::size_t edge = 0; count > 1 && edge < edges; ++edge) {
    const std::size_t from = below(generator, count - 1);
    const std::size_t to = from + 1 + below(generator, std::min(reach, count - 1 - from));
    sketch.edges.emplace_back(order[from], order[to]);
  }
  return sketch;
}

/// Leaves out nodes and edges for as long as something is still wrong with what is left.
inline Sketch shrink(Sketch sketch, const std::function<bool(const Sketch&)>& isWrong) {
  for (bool smaller = true; smaller;) {
    smaller = false;
    for (std::size_t node = sketch.classes.size(); node-- > 0;) {
      Sketch candidate = sketch.withoutNode(node);
      if (!isWrong(candidate)) continue;
      sketch = std::move(candidate);
      smaller = true;
    }
    for (std::size_t edge = sketch.edges.size(); edge-- > 0;) {
      Sketch candidate = sketch.withoutEdge(edge);
      if (!isWrong(candidate)) continue;
      sketch = std::move(candidate);
      smaller = true;
    }
  }
  return sketch;
}

}  // namespace bootforge::test
