// Plans of graphs with cycles that nothing waits in, since a member of each is left out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "analyze/image/wait_graph.h"
#include "analyze/planning/plan.h"
#include "graph/executor.h"
#include "graph/graph.h"
#include "tests/support/scratch_root.h"

namespace bootforge::analyze {
namespace {

using Names = std::vector<std::string>;

void describe(const std::string& name, const std::string& required, const std::string& provided) {
  test::writeFile(std::string(kDefaultPluginDirectory) + "/" + name + ".json",
                  R"({"metadata": {"version": 1, "requires": [)" + required +
                      R"(], "provides": [)" + provided + R"(]}, "operations": {"start": []}})");
}

Names planned(const ImageOptions& options) {
  Image image(options);
  const WaitGraph graph(image);
  Names names;
  for (const Step& step : planBoot(image, graph, false).order) {
    names.push_back(graph.name(step.node));
  }
  return names;
}

/// As a boot's one worker chooses, which never looks at more weights than it compares.
Names run(const ImageOptions& options) {
  Image image(options);
  std::vector<Node*> nodes;
  for (const auto& plugin : image.catalogue().plugins) nodes.push_back(plugin.get());
  const Graph graph(std::move(nodes));
  Executor executor(0, false);
  graph.scheduleForward(executor);
  Names names;
  const ScopedLock lock(graphLock);
  while (Node* const node = executor.take().node) {
    names.push_back(node->name());
    executor.complete(*node);
  }
  return names;
}

TEST(PlanTest, ShowingWeightsDoesNotChangeTheOrder) {
  // "first" alone is ready at the beginning. "round" is left out; it waits for and provides "m2",
  // so weights behind it depend on where their computation began.
  describe("first", "", R"("m1", "m2", "m3", "m4", "m5", "m8")");
  describe("round", R"("m2", "m8")", R"("m2")");
  describe("a", R"("m5")", R"("m3", "m1", "m4")");
  describe("b", R"("m2")", R"("m1")");
  describe("c", R"("m4")", R"("m3")");
  describe("last", R"("m3", "m1")", R"("m8")");
  ImageOptions options;
  options.selection.denied = {"round"};
  options.plugins = {"first.json", "round.json", "c.json", "last.json", "a.json", "b.json"};
  EXPECT_EQ(planned(options), run(options));
}

}  // namespace
}  // namespace bootforge::analyze
