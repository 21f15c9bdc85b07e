#include "graph/ready_queue.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <list>
#include <random>
#include <string>
#include <vector>

#include "tests/unit/graph/graph_builder.h"

namespace bootforge::test {
namespace {

/// Idle nodes of chosen classes and weights. An idle node's weight is its depth, so each hangs
/// below a ladder of as many nodes.
class WeighedNodes {
 public:
  TestNode& make(std::uint32_t schedulingClass, std::size_t weight) {
    while (ladder_.size() < weight) {
      TestNode* const above = ladder_.empty() ? nullptr : &ladder_.back();
      TestNode& rung = ladder_.emplace_back("rung", 1, journal_);
      if (above != nullptr) rung.addPrerequisite(*above);
    }
    TestNode& node = nodes_.emplace_back(std::to_string(nodes_.size()), schedulingClass, journal_);
    if (weight > 0) node.addPrerequisite(ladder_[weight - 1]);
    return node;
  }

 private:
  Journal journal_;
  std::deque<TestNode> ladder_;
  std::deque<TestNode> nodes_;
};

/// The choice by a walk over the whole queue.
class NaiveQueue {
 public:
  explicit NaiveQueue(bool randomize) : randomize_(randomize) {}

  void push(Node& node) { nodes_.push_back(&node); }

  ReadyQueue::Choice pop() REQUIRES(graphLock) {
    if (nodes_.empty()) return {};
    std::vector<std::list<Node*>::iterator> candidates;
    for (auto node = nodes_.begin(); node != nodes_.end(); ++node) {
      if (!candidates.empty()) {
        Node& best = **candidates.front();
        if ((*node)->schedulingClass() > best.schedulingClass()) continue;
        if ((*node)->schedulingClass() == best.schedulingClass()) {
          if ((*node)->schedulingWeight() < best.schedulingWeight()) continue;
          if ((*node)->schedulingWeight() > best.schedulingWeight()) candidates.clear();
        } else {
          candidates.clear();
        }
      }
      candidates.push_back(node);
    }
    const auto chosen =
        candidates[randomize_ ? static_cast<std::size_t>(std::rand()) % candidates.size() : 0];
    Node* const node = *chosen;
    nodes_.erase(chosen);
    return {node, candidates.size() - 1};
  }

 private:
  const bool randomize_;
  std::list<Node*> nodes_;
};

std::string nameOf(const Node* node) { return node == nullptr ? "none" : node->name(); }

TEST(ReadyQueue, IsEmptyAtFirst) {
  ScopedLock lock(graphLock);
  ReadyQueue queue(false);
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(queue.size(), 0U);
  EXPECT_EQ(queue.pop().node, nullptr);
  EXPECT_TRUE(queue.empty());
}

TEST(ReadyQueue, CountsItsNodes) {
  WeighedNodes nodes;
  ScopedLock lock(graphLock);
  ReadyQueue queue(false);
  for (std::size_t count = 1; count <= 5; ++count) {
    queue.push(nodes.make(1, count % 2));
    EXPECT_EQ(queue.size(), count);
    EXPECT_FALSE(queue.empty());
  }
  for (std::size_t count = 5; count > 0; --count) {
    EXPECT_EQ(queue.size(), count);
    EXPECT_NE(queue.pop().node, nullptr);
  }
  EXPECT_TRUE(queue.empty());
}

TEST(ReadyQueue, DoesNotDrawWhenThereIsNothingToChoose) {
  ScopedLock lock(graphLock);
  ReadyQueue queue(true);
  std::srand(3);
  const int next = std::rand();
  std::srand(3);
  EXPECT_EQ(queue.pop().node, nullptr);
  EXPECT_EQ(std::rand(), next);
}

struct Mix {
  const char* name;
  std::size_t classes;
  std::size_t weights;
  std::size_t longest;  // up to this many wait at a time
};

void PrintTo(const Mix& mix, std::ostream* out) { *out << mix.name; }

class ReadyQueueMix : public testing::TestWithParam<std::tuple<Mix, bool>> {};

/// What both queues gave, in order, and what the generator of numbers gives next.
std::pair<std::vector<std::string>, int> work(auto& queue, const std::vector<Node*>& stock,
                                              unsigned seed, std::size_t longest)
    REQUIRES(graphLock) {
  std::mt19937 generator(seed);
  std::srand(seed);
  std::vector<std::string> taken;
  std::vector<Node*> idle = stock;
  std::size_t waiting = 0;
  // Fills and empties in turns, so that the queue is of every length many times.
  for (int phase = 0; phase < 40; ++phase) {
    const std::size_t pushesOfEight = 1 + generator() % 7;
    for (std::size_t turn = 0; turn < longest; ++turn) {
      if (generator() % 8 < pushesOfEight && waiting < longest) {
        const std::size_t index = generator() % idle.size();
        queue.push(*idle[index]);
        std::swap(idle[index], idle.back());
        idle.pop_back();
        ++waiting;
      } else {
        const auto [node, equals] = queue.pop();
        taken.push_back(nameOf(node) + " of " + std::to_string(equals));
        if (node == nullptr) continue;
        idle.push_back(node);
        --waiting;
      }
    }
  }
  while (Node* const node = queue.pop().node) taken.push_back(nameOf(node));
  return {std::move(taken), std::rand()};
}

TEST_P(ReadyQueueMix, GivesTheChoiceOfAWalkOverTheWholeQueue) {
  const auto& [mix, randomize] = GetParam();
  for (unsigned seed = 1; seed <= 10; ++seed) {
    WeighedNodes nodes;
    std::mt19937 generator(seed);
    std::vector<Node*> stock;
    for (std::size_t i = 0; i < mix.longest + 10; ++i) {
      stock.push_back(&nodes.make(static_cast<std::uint32_t>(1 + generator() % mix.classes),
                                  generator() % mix.weights));
    }
    ScopedLock lock(graphLock);
    ReadyQueue queue(randomize);
    NaiveQueue naive(randomize);
    const auto got = work(queue, stock, seed, mix.longest);
    const auto expected = work(naive, stock, seed, mix.longest);
    ASSERT_EQ(got.first, expected.first) << "seed " << seed;
    EXPECT_EQ(got.second, expected.second) << "drawn another number of times, seed " << seed;
    EXPECT_TRUE(queue.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Of, ReadyQueueMix,
    testing::Combine(testing::Values(Mix{"OneKey", 1, 1, 300}, Mix{"AFewKeys", 2, 3, 200},
                                     Mix{"ManyKeys", 3, 40, 200}, Mix{"OneOrTwoNodes", 2, 2, 2}),
                     testing::Bool()),
    [](const auto& parameter) {
      return std::string(std::get<0>(parameter.param).name) +
             (std::get<1>(parameter.param) ? "AtRandom" : "InOrder");
    });

}  // namespace
}  // namespace bootforge::test
