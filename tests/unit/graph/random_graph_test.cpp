// Thousands of graphs drawn at random, each run by the executor and by a plain reference.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/graph/graph_builder.h"
#include "tests/unit/graph/laws.h"
#include "tests/unit/graph/reference_run.h"
#include "tests/unit/graph/sketch.h"

namespace bootforge::test {
namespace {

/// One graph twice: of real nodes, and for the reference.
struct Pair {
  Journal journal;
  std::deque<TestNode> nodes;
  std::vector<ReferenceNode> reference;
  std::string drawing;

  explicit Pair(const Sketch& sketch) : drawing(sketch.text()) {
    for (std::size_t node = 0; node < sketch.classes.size(); ++node) {
      nodes.emplace_back(std::to_string(node), sketch.classes[node], journal);
      reference.emplace_back().schedulingClass = sketch.classes[node];
    }
    for (const auto& [before, after] : sketch.edges) {
      nodes[after].addPrerequisite(nodes[before]);
      reference[before].dependents.push_back(after);
      reference[after].prerequisites.push_back(before);
    }
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;
};

std::string textOf(const std::vector<std::size_t>& nodes) {
  std::string text;
  for (const std::size_t node : nodes) text += (text.empty() ? "" : " ") + std::to_string(node);
  return text;
}

/// Runs both, and expects the same order and the same draws.
void compareRuns(Pair& pair, unsigned seed, Direction direction, bool randomize) {
  const auto schedule =
      direction == Direction::kForward ? &Node::scheduleForward : &Node::scheduleReverse;
  const auto scheduleReference = direction == Direction::kForward ? &ReferenceRun::scheduleForward
                                                                  : &ReferenceRun::scheduleReverse;
  std::srand(seed);
  Executor executor(0, randomize);
  for (TestNode& node : pair.nodes) (node.*schedule)(executor);
  drain(executor);
  const int next = std::rand();

  std::srand(seed);
  ReferenceRun reference(pair.reference, randomize);
  for (std::size_t node = 0; node < pair.nodes.size(); ++node) (reference.*scheduleReference)(node);
  while (reference.step()) {
  }
  ASSERT_EQ(pair.journal.text(), textOf(reference.completed()))
      << "seed " << seed << ", graph " << pair.drawing;
  ASSERT_EQ(pair.journal.names().size(), pair.nodes.size()) << pair.drawing;
  EXPECT_EQ(next, std::rand()) << "drawn another number of times";
}

class RandomGraph : public testing::TestWithParam<std::pair<Direction, bool>> {};

TEST_P(RandomGraph, RunsInTheOrderOfTheReference) {
  const auto [direction, randomize] = GetParam();
  for (unsigned seed = 1; seed <= 2000 && !HasFatalFailure(); ++seed) {
    Generator generator(seed);
    Pair pair(sketchAtRandom(generator, 24));
    compareRuns(pair, seed, direction, randomize);
  }
}

// Long queues, in which nodes of one weight wait by the hundred.
TEST_P(RandomGraph, OfAThousandNodesRunsInTheOrderOfTheReference) {
  const auto [direction, randomize] = GetParam();
  for (unsigned seed = 1; seed <= 8 && !HasFatalFailure(); ++seed) {
    Generator generator(seed);
    Pair pair(sketchAtRandom(generator, 1000));
    compareRuns(pair, seed, direction, randomize);
  }
}

INSTANTIATE_TEST_SUITE_P(
    EachPass, RandomGraph,
    testing::Values(std::pair(Direction::kForward, false), std::pair(Direction::kForward, true),
                    std::pair(Direction::kReverse, false), std::pair(Direction::kReverse, true)),
    [](const auto& parameter) {
      return std::string(parameter.param.first == Direction::kForward ? "Forward" : "Reverse") +
             (parameter.param.second ? "AtRandom" : "InOrder");
    });

/// Does one thing at random with both. A node that is queued in the one pass is not asked to take
/// part in the other: nobody does that.
void actOnBoth(Pair& pair, Executor& executor, ReferenceRun& reference, Generator& generator,
               std::ostream& log) {
  const std::size_t node = below(generator, pair.nodes.size());
  switch (below(generator, 8)) {
    case 0:
      if (reference.state(node) == 3 || reference.state(node) == 4) break;
      log << "mark " << node << '\n';
      pair.nodes[node].markForwardDone();
      reference.markForwardDone(node);
      break;
    case 1:
    case 2:
      if (reference.state(node) == 4) break;
      log << "forward " << node << '\n';
      pair.nodes[node].scheduleForward(executor);
      reference.scheduleForward(node);
      break;
    case 3:
    case 4:
      if (reference.state(node) == 3) break;
      log << "reverse " << node << '\n';
      pair.nodes[node].scheduleReverse(executor);
      reference.scheduleReverse(node);
      break;
    default:
      log << "step\n";
      EXPECT_EQ(step(executor), reference.step());
  }
}

std::string statesOf(Pair& pair) {
  std::string text;
  for (TestNode& node : pair.nodes) {
    text += std::to_string(static_cast<std::uint32_t>(stateOf(node)));
  }
  return text;
}

std::string statesOf(const ReferenceRun& reference, std::size_t count) {
  std::string text;
  for (std::size_t node = 0; node < count; ++node) text += std::to_string(reference.state(node));
  return text;
}

// Both passes at once, nodes left out, steps in between: every state is that of the reference.
TEST(MixedPasses, KeepTheStatesOfTheReference) {
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    Generator generator(seed);
    Pair pair(sketchAtRandom(generator, 10));
    Executor executor(0, false);
    ReferenceRun reference(pair.reference, false);
    std::ostringstream log;
    for (int action = 0; action < 60; ++action) {
      actOnBoth(pair, executor, reference, generator, log);
      ASSERT_EQ(statesOf(pair), statesOf(reference, pair.nodes.size()))
          << "seed " << seed << ", graph " << pair.drawing << "\n"
          << log.str();
    }
    ASSERT_EQ(pair.journal.text(), textOf(reference.completed())) << log.str();
  }
}

}  // namespace
}  // namespace bootforge::test
