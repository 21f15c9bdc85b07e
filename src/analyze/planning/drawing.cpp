#include "analyze/planning/drawing.h"

#include <limits>
#include <vector>

#include "analyze/planning/why.h"
#include "util/utf8.h"

namespace bootforge::analyze {
namespace {

using Index = WaitGraph::Index;

/// A text inside double quotes of the dot language, where only these two need a backslash.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : printable(text)) {
    if (c == '"' || c == '\\') result += '\\';
    result += c;
  }
  return result;
}

/// What is drawn.
std::vector<char> chosen(const WaitGraph& graph, const std::optional<Part>& part) {
  if (!part) return std::vector<char>(graph.size(), 1);
  std::vector<char> isChosen(graph.size(), 0);
  WaitGraph::Indices layer{part->around};
  isChosen[part->around] = 1;
  for (std::size_t depth = 0; depth < part->depth && !layer.empty(); ++depth) {
    WaitGraph::Indices next;
    for (const Index index : layer) {
      for (const auto* const neighbours : {&graph.prerequisites(index), &graph.dependents(index)}) {
        for (const Index other : *neighbours) {
          if (isChosen[other]) continue;
          isChosen[other] = 1;
          next.push_back(other);
        }
      }
    }
    layer = std::move(next);
  }
  return isChosen;
}

}  // namespace

std::string drawGraph(const Image& image, const WaitGraph& graph, const std::optional<Part>& part) {
  const std::vector<char> isChosen = chosen(graph, part);
  const Cycles cycles(graph);
  std::string text = "digraph g {\n";
  for (Index i = 0; i < graph.size(); ++i) {
    if (!isChosen[i]) continue;
    const std::string identifier = "n" + std::to_string(i);
    std::string label = escaped(graph.name(i));
    std::string attributes = graph.node(i).dotAttributes();
    if (!graph.isBarrier(i)) {
      const std::string reason = reasonAgainst(image, graph, cycles, i);
      if (!reason.empty()) {
        label +=
            std::string("\\n") + (graph.isDone(i) ? "left out: " : "blocked: ") + escaped(reason);
        attributes += graph.isDone(i) ? " style=dashed" : " color=red";
      }
    }
    text += identifier + " [label=\"" + label + '"' + attributes + "];\n";
    for (const Index other : graph.dependents(i)) {
      if (isChosen[other]) text += identifier + " -> n" + std::to_string(other) + ";\n";
    }
  }
  return text + "}\n";
}

}  // namespace bootforge::analyze
