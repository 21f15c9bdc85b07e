#include "graph/priority_barrier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "graph/barrier_registry.h"
#include "tests/double/recorder.h"
#include "tests/support/barriers.h"
#include "tests/support/own_process.h"
#include "tests/unit/graph/graph_builder.h"
#include "tests/unit/graph/test_plugin.h"

namespace bootforge::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string namesOf(const Node::List& list) {
  std::string text;
  for (const Node* node : list) {
    std::string name = node->name();
    const std::string marker = "_<->_priority_<->_";
    if (name.starts_with(marker)) name.erase(0, marker.size());
    text += (text.empty() ? "" : " ") + name;
  }
  return text;
}

/// The names of what a node waits for, levels by their numbers.
std::string waitsFor(const Node& node) {
  ScopedLock lock(graphLock);
  return namesOf(node.prerequisites());
}

std::string isWaitedForBy(const Node& node) {
  ScopedLock lock(graphLock);
  return namesOf(node.dependents());
}

/// A script on its level, made as plugins of init scripts are.
class Script : public TestPlugin {
 public:
  Script(const std::string& name, std::uint32_t priority) : TestPlugin(name, 3) {
    attachToPriority(test::barriers(), priorityBarrierFor(test::barriers(), priority), *this);
  }
  void runReverse(Executor&) override {
    if (onStop) onStop();
  }

  std::function<void()> onStop;
};

TEST(PriorityBarrier, IsNamedAfterItsPriority) {
  EXPECT_EQ(priorityBarrierName(20), "_<->_priority_<->_20");
  EXPECT_EQ(priorityBarrierName(0), "_<->_priority_<->_0");
  EXPECT_EQ(priorityBarrierName(4294967295U), "_<->_priority_<->_4294967295");
}

TEST(PriorityBarrier, IsABarrierOfItsOwnShape) {
  inOwnProcess([] {
    const PriorityBarrier& barrier = priorityBarrierFor(test::barriers(), 20);
    EXPECT_EQ(barrier.name(), "_<->_priority_<->_20");
    EXPECT_EQ(barrier.priority(), 20U);
    EXPECT_EQ(barrier.schedulingClass(), 1U);
    EXPECT_EQ(barrier.dotAttributes(), " shape=trapezium");
    EXPECT_EQ(test::barriers().lookupBarrier("_<->_priority_<->_20", false), &barrier);
  });
}

TEST(PriorityBarrier, IsMadeOnceForAPriority) {
  inOwnProcess([] {
    const PriorityBarrier& barrier = priorityBarrierFor(test::barriers(), 20);
    EXPECT_EQ(&priorityBarrierFor(test::barriers(), 20), &barrier);
    EXPECT_NE(&priorityBarrierFor(test::barriers(), 21), &barrier);
    EXPECT_EQ(&priorityBarrierFor(test::barriers(), 20), &barrier);
    EXPECT_EQ(test::barriers().allBarriers().size(), 2U);
  });
}

// Somebody's milestone has the name of a level already.
TEST(PriorityBarrier, TakesItsNameFromAMilestoneThatHasIt) {
  inOwnProcess([] {
    // Nobody else points at it once it is replaced.
    static InitBarrier* const milestone =
        test::barriers().lookupBarrier("_<->_priority_<->_20", true);
    PriorityBarrier& barrier = priorityBarrierFor(test::barriers(), 20);
    EXPECT_NE(static_cast<InitBarrier*>(&barrier), milestone);
    EXPECT_EQ(test::barriers().lookupBarrier("_<->_priority_<->_20", false), &barrier);
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 30)), "20");
  });
}

// Its work reports nothing, although nobody provides it.
TEST(PriorityBarrier, SaysNothingWhenItsLevelHasNoScripts) {
  inOwnProcess([] {
    doubles::reset();
    PriorityBarrier& barrier = priorityBarrierFor(test::barriers(), 20);
    Executor executor(0, false);
    barrier.scheduleForward(executor);
    EXPECT_TRUE(step(executor));
    EXPECT_EQ(stateOf(barrier), Node::State::ForwardDone);
    EXPECT_THAT(doubles::records(), IsEmpty());
  });
}

//  10 > 20 > 30, whatever the order in which they are made
TEST(PriorityLevels, FormAnAscendingChain) {
  std::vector<std::uint32_t> priorities{10, 20, 30};
  do {
    inChild([&] {
      for (const std::uint32_t priority : priorities)
        priorityBarrierFor(test::barriers(), priority);
      // A level that came in between leaves the edge around it in place.
      const bool last20 = priorities.back() == 20;
      EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 10)), "");
      EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 20)), "10");
      EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 30)), last20 ? "10 20" : "20");
      EXPECT_EQ(isWaitedForBy(priorityBarrierFor(test::barriers(), 10)), last20 ? "30 20" : "20");
    });
  } while (std::next_permutation(priorities.begin(), priorities.end()));
}

//  10:  a -> 10
//  20:  10 -> b -> 20
//  30:  20 -> c -> 30
TEST(PriorityLevels, MadeInTheOrder201030PutEveryScriptBehindTheLevelBelow) {
  inOwnProcess([] {
    const Script b("b", 20);
    EXPECT_EQ(waitsFor(b), "") << "the lowest level so far";
    const Script a("a", 10);
    const Script c("c", 30);
    EXPECT_EQ(waitsFor(a), "");
    EXPECT_EQ(isWaitedForBy(a), "10");
    EXPECT_EQ(waitsFor(b), "10");
    EXPECT_EQ(isWaitedForBy(b), "20");
    EXPECT_EQ(waitsFor(c), "20");
    EXPECT_EQ(isWaitedForBy(c), "30");
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 10)), "a");
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 20)), "b 10");
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 30)), "20 c");
    EXPECT_EQ(isWaitedForBy(priorityBarrierFor(test::barriers(), 10)), "b 20");
    EXPECT_EQ(isWaitedForBy(priorityBarrierFor(test::barriers(), 20)), "30 c");
    EXPECT_EQ(isWaitedForBy(priorityBarrierFor(test::barriers(), 30)), "");
  });
}

TEST(PriorityLevels, LeaveScriptsOfTheLowestLevelWithoutPrerequisites) {
  inOwnProcess([] {
    const Script a("a", 7);
    const Script b("b", 7);
    EXPECT_EQ(waitsFor(a), "");
    EXPECT_EQ(waitsFor(b), "");
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 7)), "a b");
  });
}

// The scripts of 30 wait for 10 until 20 comes, and then for both.
TEST(PriorityLevels, MadeInBetweenLaterComeBeforeTheScriptsAbove) {
  inOwnProcess([] {
    const Script a("a", 10);
    const Script c("c", 30);
    const Script d("d", 30);
    EXPECT_EQ(waitsFor(c), "10");
    const Script b("b", 20);
    EXPECT_EQ(waitsFor(c), "10 20");
    EXPECT_EQ(waitsFor(d), "10 20");
    EXPECT_EQ(waitsFor(b), "10");
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 30)), "10 c d 20");
    EXPECT_EQ(isWaitedForBy(priorityBarrierFor(test::barriers(), 20)), "c d 30");
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 20)), "10 b");
    const Script e("e", 30);
    EXPECT_EQ(waitsFor(e), "20");
  });
}

// What is gone is not taken along, whatever stood where before.
TEST(PriorityLevels, MadeInBetweenDoNotTakeAlongAScriptThatIsGone) {
  inOwnProcess([] {
    auto a = std::make_unique<Script>("a", 100);
    const Script b("b", 100);
    priorityBarrierFor(test::barriers(), 10);
    EXPECT_EQ(isWaitedForBy(priorityBarrierFor(test::barriers(), 10)), "a b 100");
    a.reset();
    const Script c("c", 100);
    priorityBarrierFor(test::barriers(), 20);
    EXPECT_EQ(isWaitedForBy(priorityBarrierFor(test::barriers(), 20)), "b c 100");
    EXPECT_EQ(waitsFor(b), "10 20");
    EXPECT_EQ(waitsFor(c), "10 20");
  });
}

// A negative priority comes first in the list of scripts, and its level is above all others.
TEST(PriorityLevels, MadeByTheThousandBelowAScriptComeBeforeItInTheOrderOfTheirMaking) {
  inOwnProcess([] {
    constexpr std::uint32_t kLevels = 5000;
    const Script last("last", 4294967295U);
    std::string all;
    for (std::uint32_t priority = 0; priority < kLevels; ++priority) {
      priorityBarrierFor(test::barriers(), priority);
      all += (all.empty() ? "" : " ") + std::to_string(priority);
    }
    EXPECT_EQ(waitsFor(last), all);
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 4294967295U)), "last " + all);
  });
}

// Nodes that are no plugins stay where they are.
TEST(PriorityLevels, MadeInBetweenTakeOnlyPluginsAlong) {
  inOwnProcess([] {
    priorityBarrierFor(test::barriers(), 10);
    Journal journal;
    TestNode stranger("stranger", 1, journal);
    priorityBarrierFor(test::barriers(), 30).addPrerequisite(stranger);
    priorityBarrierFor(test::barriers(), 30)
        .addPrerequisite(*test::barriers().lookupBarrier("milestone", true));
    const Script c("c", 30);
    priorityBarrierFor(test::barriers(), 20);
    EXPECT_EQ(waitsFor(stranger), "");
    EXPECT_EQ(waitsFor(*test::barriers().lookupBarrier("milestone", false)), "");
    EXPECT_EQ(waitsFor(c), "10 20");
    EXPECT_EQ(isWaitedForBy(priorityBarrierFor(test::barriers(), 20)), "c 30");
  });
}

// Where a level stands in the list is remembered, and looked for again when that has changed.
TEST(PriorityLevels, FindTheirPlaceAgainWhenOthersHaveComeBefore) {
  inOwnProcess([] {
    const Script a("a", 100);
    EXPECT_EQ(waitsFor(a), "");
    for (std::uint32_t below = 90; below > 0; below -= 10) {
      priorityBarrierFor(test::barriers(), below);
      const Script next("next", 100);
      EXPECT_EQ(waitsFor(next), "90");
      const Script again("again", 100);
      EXPECT_EQ(waitsFor(again), "90");
    }
    priorityBarrierFor(test::barriers(), 95);
    const Script last("last", 100);
    EXPECT_EQ(waitsFor(last), "95");
    const Script lowest("lowest", 10);
    EXPECT_EQ(waitsFor(lowest), "");
  });
}

TEST(PriorityLevels, GoUpToTheLargestNumber) {
  inOwnProcess([] {
    const Script last("last", 4294967295U);
    const Script first("first", 0);
    EXPECT_EQ(waitsFor(last), "0");
    EXPECT_EQ(waitsFor(first), "");
    EXPECT_EQ(waitsFor(priorityBarrierFor(test::barriers(), 4294967295U)), "last 0");
  });
}

/// Runs one pass over scripts of several levels, on one worker.
std::string orderOf(void (Node::*schedule)(Executor&)) {
  Journal journal;
  std::deque<Script> scripts;
  for (const std::uint32_t priority : {30U, 10U, 20U, 10U, 25U, 30U}) {
    Script& script = scripts.emplace_back(std::to_string(priority), priority);
    script.onStart = script.onStop = [&journal, &script] { journal.add(script.name()); };
  }
  Executor executor(0, false);
  for (Script& script : scripts) (script.*schedule)(executor);
  drain(executor);
  return journal.text();
}

TEST(PriorityLevels, StartScriptsFromTheLowestUp) {
  inOwnProcess([] { EXPECT_EQ(orderOf(&Node::scheduleForward), "10 10 20 25 30 30"); });
}

TEST(PriorityLevels, StopScriptsFromTheHighestDown) {
  inOwnProcess([] { EXPECT_EQ(orderOf(&Node::scheduleReverse), "30 30 25 20 10 10"); });
}

TEST(PriorityLevels, OrderTheScriptsAgainstOthersByClass) {
  inOwnProcess([] {
    Journal journal;
    Script script("script", 10);
    TestPlugin plugin("plugin");
    script.onStart = [&journal] { journal.add("script"); };
    plugin.onStart = [&journal] { journal.add("plugin"); };
    Executor executor(0, false);
    script.scheduleForward(executor);
    plugin.scheduleForward(executor);
    drain(executor);
    EXPECT_EQ(journal.text(), "plugin script");
  });
}

TEST(PriorityLevels, OfAllNumbersMadeInAnyOrderFormAnAscendingChain) {
  inOwnProcess([] {
    constexpr std::uint32_t kLevels = 10000;
    std::vector<std::uint32_t> priorities(kLevels);
    std::iota(priorities.begin(), priorities.end(), 0U);
    std::shuffle(priorities.begin(), priorities.end(), std::mt19937(1));
    std::deque<Script> scripts;
    std::vector<std::uint32_t> started;
    for (const std::uint32_t priority : priorities) {
      scripts.emplace_back(std::to_string(priority), priority).onStart = [&started, priority] {
        started.push_back(priority);
      };
    }
    doubles::setRecording(false);
    Executor executor(0, false);
    for (Script& script : scripts) script.scheduleForward(executor);
    drain(executor);
    doubles::setRecording(true);
    ASSERT_EQ(started.size(), kLevels);
    EXPECT_TRUE(std::is_sorted(started.begin(), started.end()));
  });
}

}  // namespace
}  // namespace bootforge::test
