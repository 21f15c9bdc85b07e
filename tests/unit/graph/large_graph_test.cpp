// Graphs of a million nodes. Whatever recurses or walks a list over and over does not get to the
// end of these within the time limit of a test.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <deque>

#include "graph/graph.h"
#include "tests/unit/graph/graph_builder.h"

namespace bootforge::test {
namespace {

constexpr std::size_t kMillion = 1'000'000;
constexpr std::size_t kWide = 200'000;

/// A node that counts, and expects to be the so-and-so-manieth to run.
class CountingNode : public Node {
 public:
  explicit CountingNode(std::atomic<std::size_t>& count) : Node({}, 1), count_(count) {}
  void run(Executor&) override { place = count_++; }
  void runReverse(Executor&) override { place = count_++; }
  std::string dotAttributes() const override { return {}; }

  std::size_t place = SIZE_MAX;

 private:
  std::atomic<std::size_t>& count_;
};

struct LargeGraph {
  std::atomic<std::size_t> count = 0;
  std::deque<CountingNode> nodes;

  explicit LargeGraph(std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) nodes.emplace_back(count);
  }
  // From the last to the first, as a list of plugins does: the quick order for their edges.
  ~LargeGraph() {
    while (!nodes.empty()) nodes.pop_back();
  }
  LargeGraph(const LargeGraph&) = delete;
  LargeGraph& operator=(const LargeGraph&) = delete;

  Graph graph() {
    std::vector<Node*> pointers;
    for (CountingNode& node : nodes) pointers.push_back(&node);
    return Graph(std::move(pointers));
  }
};

struct Chain : LargeGraph {
  Chain() : LargeGraph(kMillion) {
    for (std::size_t i = 1; i < kMillion; ++i) nodes[i].addPrerequisite(nodes[i - 1]);
  }
};

TEST(LargeGraph, ChainIsPulledThroughFromItsEnd) {
  Chain chain;
  Executor executor(1, false);
  chain.nodes.back().scheduleForward(executor);
  chain.nodes.back().waitForward();
  for (std::size_t i = 0; i < kMillion; ++i) ASSERT_EQ(chain.nodes[i].place, i);
}

TEST(LargeGraph, ChainIsPulledThroughFromItsHeadInReverse) {
  Chain chain;
  Executor executor(1, false);
  chain.nodes.front().scheduleReverse(executor);
  chain.nodes.front().waitReverse();
  for (std::size_t i = 0; i < kMillion; ++i) ASSERT_EQ(chain.nodes[i].place, kMillion - 1 - i);
}

TEST(LargeGraph, ChainIsScheduledNodeByNode) {
  Chain chain;
  Executor executor(2, false);
  chain.graph().runForward(executor);
  EXPECT_EQ(chain.count, kMillion);
}

// Two chains, so that path lengths are asked for.
TEST(LargeGraph, ChainsAreWeighedAgainstEachOther) {
  Chain chain;
  DrawnGraph other("x>y");
  Executor executor(0, false);
  other["x"].scheduleForward(executor);
  other["y"].scheduleForward(executor);
  chain.nodes.back().scheduleForward(executor);
  ScopedLock lock(graphLock);
  EXPECT_TRUE(executor.runOne());
  EXPECT_EQ(chain.count, 1U) << "the longer chain first";
  EXPECT_EQ(chain.nodes[1].schedulingWeight(), static_cast<std::int32_t>(kMillion - 2));
  EXPECT_EQ(chain.nodes.back().schedulingWeight(), static_cast<std::int32_t>(kMillion - 1));
}

TEST(LargeGraph, ChainIsTakenApartFromEitherEnd) {
  { const Chain chain; }
  Chain chain;
  while (!chain.nodes.empty()) chain.nodes.pop_front();
}

TEST(LargeGraph, RingOfAMillionNodesWaits) {
  Chain ring;
  ring.nodes.front().addPrerequisite(ring.nodes.back());
  Executor executor(0, false);
  ring.nodes.front().scheduleForward(executor);
  EXPECT_FALSE(step(executor));
  for (const CountingNode& node : ring.nodes) {
    ASSERT_EQ(stateOf(node), Node::State::ForwardWaiting);
  }
}

//  p1 ... p200000 > milestone > r1 ... r200000
struct Milestone : LargeGraph {
  Milestone() : LargeGraph(2 * kWide + 1) {
    for (std::size_t i = 0; i < kWide; ++i) milestone().addPrerequisite(nodes[i]);
    for (std::size_t i = kWide + 1; i <= 2 * kWide; ++i) nodes[i].addPrerequisite(milestone());
  }
  CountingNode& milestone() { return nodes[kWide]; }
};

TEST(LargeGraph, MilestoneOfManyProvidersAndRequirersIsPassed) {
  Milestone graph;
  Executor executor(1, false);
  graph.graph().runForward(executor);
  EXPECT_EQ(graph.count, 2 * kWide + 1);
  EXPECT_EQ(graph.milestone().place, kWide);
}

TEST(LargeGraph, MilestoneOfManyProvidersAndRequirersIsPassedInReverse) {
  Milestone graph;
  Executor executor(1, false);
  graph.graph().runReverse(executor);
  EXPECT_EQ(graph.count, 2 * kWide + 1);
  EXPECT_EQ(graph.milestone().place, kWide);
}

TEST(LargeGraph, MilestoneIsPassedAtRandom) {
  std::srand(1);
  Milestone graph;
  Executor executor(1, true);
  graph.graph().runForward(executor);
  EXPECT_EQ(graph.count, 2 * kWide + 1);
  EXPECT_EQ(graph.milestone().place, kWide);
}

TEST(LargeGraph, MilestoneIsPassedByTwoWorkers) {
  Milestone graph;
  Executor executor(2, false);
  graph.graph().runForward(executor);
  EXPECT_EQ(graph.count, 2 * kWide + 1);
  EXPECT_EQ(graph.milestone().place, kWide);
}

// Each layer waits for all of the layer above: 200 layers of 100, two million edges.
TEST(LargeGraph, DenselyLinkedLayersAreRunLayerByLayer) {
  constexpr std::size_t kLayers = 200;
  constexpr std::size_t kWidth = 100;
  LargeGraph graph(kLayers * kWidth);
  for (std::size_t i = kWidth; i < kLayers * kWidth; ++i) {
    const std::size_t above = (i / kWidth - 1) * kWidth;
    for (std::size_t j = 0; j < kWidth; ++j) graph.nodes[i].addPrerequisite(graph.nodes[above + j]);
  }
  Executor executor(2, false);
  graph.graph().runForward(executor);
  for (std::size_t i = 0; i < kLayers * kWidth; ++i) {
    ASSERT_EQ(graph.nodes[i].place / kWidth, i / kWidth);
  }
}

}  // namespace
}  // namespace bootforge::test
