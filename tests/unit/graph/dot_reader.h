// Reading of a dependency dump: its lines as they stand, or the graph that they mean.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace bootforge::test {

struct DotGraph {
  struct Vertex {
    std::string label;
    std::string attributes;  // what follows the label inside the bracket
    bool operator==(const Vertex&) const = default;
  };

  std::vector<Vertex> vertices;                            // in the order of the dump
  std::vector<std::pair<std::string, std::string>> edges;  // by labels, likewise

  std::vector<std::string> labels() const {
    std::vector<std::string> result;
    for (const Vertex& vertex : vertices) result.push_back(vertex.label);
    return result;
  }
  /// "a>b c>d"
  std::string edgeText() const {
    std::string text;
    for (const auto& [from, to] : edges) text += (text.empty() ? "" : " ") + from + ">" + to;
    return text;
  }
  std::string attributesOf(const std::string& label) const {
    for (const Vertex& vertex : vertices) {
      if (vertex.label == label) return vertex.attributes;
    }
    return "no such vertex";
  }
};

inline std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// Fails the running test on any line that does not belong, on an edge to a vertex that is not
/// there, and on a vertex or an edge that stands there twice.
inline DotGraph readDot(const std::string& text) {
  static const std::regex vertexLine(R"re((\d+) \[label="(.*)"([^"]*)\];)re");
  static const std::regex edgeLine(R"re((\d+) -> (\d+);)re");
  DotGraph graph;
  std::map<std::string, std::string> labelById;
  std::vector<std::pair<std::string, std::string>> edges;
  std::vector<std::string> lines = linesOf(text);
  EXPECT_TRUE(text.ends_with("\n")) << text;
  if (lines.size() < 2 || lines.front() != "digraph g {" || lines.back() != "}") {
    ADD_FAILURE() << "no graph: " << text;
    return graph;
  }
  for (std::size_t i = 1; i + 1 < lines.size(); ++i) {
    std::smatch match;
    if (std::regex_match(lines[i], match, edgeLine)) {
      edges.emplace_back(match[1], match[2]);
    } else if (std::regex_match(lines[i], match, vertexLine)) {
      EXPECT_TRUE(labelById.emplace(match[1], match[2]).second) << "twice: " << lines[i];
      graph.vertices.push_back({match[2], match[3]});
    } else {
      ADD_FAILURE() << "line " << i + 1 << ": " << lines[i];
    }
  }
  for (const auto& [from, to] : edges) {
    EXPECT_TRUE(labelById.contains(from) && labelById.contains(to)) << from << " -> " << to;
    graph.edges.emplace_back(labelById[from], labelById[to]);
  }
  EXPECT_EQ(std::set(edges.begin(), edges.end()).size(), edges.size()) << "an edge stands twice";
  return graph;
}

}  // namespace bootforge::test
