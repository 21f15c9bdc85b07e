// Graphs drawn at random, run by several workers: in what order is theirs to say, but what the laws
// ask has to hold. BOOTFORGE_GRAPHS says how many graphs (500), BOOTFORGE_SEED which.
#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "graph/executor.h"
#include "graph/graph.h"
#include "tests/unit/graph/laws.h"
#include "tests/unit/graph/sketch.h"

namespace bootforge::test {
namespace {

/// The events of a run. Any thread.
class Events {
 public:
  void add(std::size_t node, bool isEnd) {
    const std::lock_guard lock(mutex_);
    events_.push_back({std::this_thread::get_id(), node, isEnd});
  }
  /// When the run is over.
  const std::vector<Event>& all() const { return events_; }

 private:
  std::mutex mutex_;
  std::vector<Event> events_;
};

class WatchedNode : public Node {
 public:
  WatchedNode(std::size_t number, std::uint32_t schedulingClass, Events& events)
      : Node(std::to_string(number), schedulingClass), number_(number), events_(events) {}

  void run(Executor& /*executor*/) override { work(); }
  void runReverse(Executor& /*executor*/) override { work(); }
  std::string dotAttributes() const override { return {}; }

 private:
  void work() {
    events_.add(number_, false);
    // What others do meanwhile is more varied when nodes take unlike times.
    for (std::size_t turn = number_ * 7919 % 4; turn > 0; --turn) std::this_thread::yield();
    events_.add(number_, true);
  }

  const std::size_t number_;
  Events& events_;
};

struct Setting {
  Direction direction;
  std::size_t workers;
  bool randomize;
};

std::vector<Event> eventsOf(const Sketch& sketch, const Setting& setting) {
  Events events;
  std::deque<WatchedNode> nodes;
  std::vector<Node*> list;
  for (std::size_t node = 0; node < sketch.classes.size(); ++node) {
    list.push_back(&nodes.emplace_back(node, sketch.classes[node], events));
  }
  for (const auto& [before, after] : sketch.edges) nodes[after].addPrerequisite(nodes[before]);
  const Graph graph(list);
  Executor executor(static_cast<std::int32_t>(setting.workers), setting.randomize);
  if (setting.direction == Direction::kForward) {
    graph.runForward(executor);
  } else {
    graph.runReverse(executor);
  }
  return events.all();
}

std::string brokenLawIn(const Sketch& sketch, const Setting& setting) {
  return brokenLaw(sketch, setting.direction, setting.workers, eventsOf(sketch, setting));
}

unsigned numberFrom(const char* variable, unsigned otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

class Workers : public testing::TestWithParam<Setting> {};

TEST_P(Workers, KeepTheLaws) {
  const unsigned first = numberFrom("BOOTFORGE_SEED", 1) * 2654435761U;
  const unsigned count = numberFrom("BOOTFORGE_GRAPHS", 500);
  for (unsigned graph = 0; graph < count; ++graph) {
    Generator generator(first + graph);
    const Sketch sketch = sketchAtRandom(generator, 24);
    const std::string broken = brokenLawIn(sketch, GetParam());
    if (broken.empty()) continue;
    // What depends on the workers' pace does not show every time.
    const Sketch smallest = shrink(sketch, [](const Sketch& candidate) {
      for (int attempt = 0; attempt < 200; ++attempt) {
        if (!brokenLawIn(candidate, GetParam()).empty()) return true;
      }
      return false;
    });
    FAIL() << broken << " in graph " << first + graph << ": " << sketch.text()
           << "\nthe same may be seen with: " << smallest.text();
  }
}

INSTANTIATE_TEST_SUITE_P(
    EachPass, Workers,
    testing::Values(Setting{Direction::kForward, 2, false}, Setting{Direction::kForward, 2, true},
                    Setting{Direction::kReverse, 2, false}, Setting{Direction::kReverse, 2, true},
                    Setting{Direction::kForward, 4, false}, Setting{Direction::kForward, 4, true},
                    Setting{Direction::kReverse, 4, false}, Setting{Direction::kReverse, 4, true}),
    [](const auto& setting) {
      return std::string(setting.param.direction == Direction::kForward ? "Forward" : "Reverse") +
             "By" + std::to_string(setting.param.workers) +
             (setting.param.randomize ? "AtRandom" : "InOrder");
    });

/// Events as text: "a0+ b1+ a0-" is worker a beginning node 0, b beginning 1, a ending 0.
std::string lawBrokenBy(const Sketch& sketch, const std::string& told, std::size_t workers = 2) {
  // Ids of threads that live as long as this program: any will do, as long as they differ.
  static std::deque<std::thread> threads;
  static const std::vector<std::thread::id> ids = [] {
    std::vector<std::thread::id> made;
    for (int i = 0; i < 3; ++i) made.push_back(threads.emplace_back([] {}).get_id());
    for (std::thread& thread : threads) thread.join();
    return made;
  }();
  std::vector<Event> events;
  for (std::size_t at = 0; at < told.size(); at += 4) {
    events.push_back({ids[static_cast<std::size_t>(told[at] - 'a')],
                      static_cast<std::size_t>(told[at + 1] - '0'), told[at + 2] == '-'});
  }
  return brokenLaw(sketch, Direction::kForward, workers, events);
}

TEST(Laws, AreKeptByWorkersInAnyOrder) {
  const Sketch pair{{1, 1}, {{0, 1}}};
  EXPECT_EQ(lawBrokenBy(pair, "a0+ a0- a1+ a1-"), "");
  EXPECT_EQ(lawBrokenBy(pair, "a0+ a0- b1+ b1-"), "");
  EXPECT_EQ(lawBrokenBy({{1, 1}, {}}, "b1+ a0+ a0- b1-"), "");
}

TEST(Laws, AreBrokenByANodeThatBeginsTooSoon) {
  EXPECT_EQ(lawBrokenBy({{1, 1}, {{0, 1}}}, "a0+ b1+ a0- b1-"),
            "node 1 begins before node 0 has ended");
}

TEST(Laws, AreBrokenByANodeThatRunsTwiceOrNotAtAll) {
  EXPECT_EQ(lawBrokenBy({{1}, {}}, "a0+ a0- b0+ b0-"), "node 0 begins twice");
  EXPECT_EQ(lawBrokenBy({{1}, {}}, "a0+ a0- a0-"), "node 0 ends where it has not begun");
  EXPECT_EQ(lawBrokenBy({{1, 1}, {}}, "a0+ a0-"), "node 1 does not end");
}

TEST(Laws, AreBrokenByAWorkerWithTwoNodesOrOneTooMany) {
  EXPECT_EQ(lawBrokenBy({{1, 1}, {}}, "a0+ a1+ a1- a0-"), "a worker begins node 1 too soon");
  EXPECT_EQ(lawBrokenBy({{1, 1}, {}}, "a0+ a0- b1+ b1-", 1), "2 workers");
}

TEST(Laws, AreBrokenByAChoiceThatIsNotTheBest) {
  // Class 2 before class 1, while the other worker was busy all the time.
  EXPECT_EQ(lawBrokenBy({{1, 1, 2, 1}, {}}, "a0+ b1+ a0- a2+ b1- b3+ b3- a2-"),
            "node 2 is taken while node 3 is there");
  // A node with nothing behind it before one with a chain.
  EXPECT_EQ(lawBrokenBy({{1, 1, 1, 1, 1}, {{3, 4}}}, "a0+ b1+ a0- a2+ b1- b3+ b3- b4+ b4- a2-"),
            "node 2 is taken while node 3 is there");
  // It may have come into the queue, or have been taken out, at the same moment.
  EXPECT_EQ(lawBrokenBy({{1, 1, 2, 1}, {{1, 3}}}, "a0+ b1+ b1- a0- a2+ b3+ b3- a2-"), "");
  EXPECT_EQ(lawBrokenBy({{1, 1, 2, 1}, {}}, "a0+ b1+ b1- a0- a2+ b3+ b3- a2-"), "");
}

TEST(Shrinking, LeavesWhatIsWrongAndNothingElse) {
  Generator generator(3);
  Sketch sketch = sketchAtRandom(generator, 24);
  sketch.classes.insert(sketch.classes.end(), {7, 8});
  sketch.edges.emplace_back(sketch.classes.size() - 2, sketch.classes.size() - 1);
  const Sketch smallest = shrink(sketch, [](const Sketch& candidate) {
    return std::any_of(candidate.edges.begin(), candidate.edges.end(), [&](const auto& edge) {
      return candidate.classes[edge.first] == 7 && candidate.classes[edge.second] == 8;
    });
  });
  EXPECT_EQ(smallest.text(), "0:7 1:8 0>1");
}

}  // namespace
}  // namespace bootforge::test
