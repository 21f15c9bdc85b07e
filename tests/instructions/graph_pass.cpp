// usage: graph_pass SHAPE NODES
//
// Runs one graph of nodes that do nothing, once, on one worker.

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "bench/drawn_graph.h"
#include "graph/executor.h"

int main(int argc, char** argv) {
  using bootforge::bench::Drawing;
  const std::map<std::string, Drawing (*)(std::size_t)> shapes{
      {"chain", &Drawing::chain},
      {"fan", &Drawing::fan},
      {"layers", &Drawing::layers},
      {"milestones", &Drawing::milestones},
  };
  const auto shape = argc == 3 ? shapes.find(argv[1]) : shapes.end();
  const std::size_t size = argc == 3 ? std::strtoull(argv[2], nullptr, 10) : 0;
  if (shape == shapes.end() || size == 0) {
    std::fprintf(stderr, "usage: %s chain|fan|layers|milestones NODES\n", argv[0]);
    return 2;
  }
  const bootforge::bench::DrawnGraph nodes(shape->second(size));
  bootforge::Executor executor(1, false);
  nodes.graph().runForward(executor);
  return 0;
}
