// Who is woken, and when. A wake costs more than many a node.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <thread>

#include "graph/graph.h"
#include "tests/unit/graph/condition_calls.h"
#include "tests/unit/graph/graph_builder.h"

namespace bootforge::test {
namespace {

TEST(Wake, IsNotGivenByANodeThatIsMarkedAsDone) {
  DrawnGraph graph("a>b");
  Executor executor(0, false);
  graph["b"].scheduleForward(executor);
  const int broadcasts = broadcastCount();
  const int signals = signalCount();
  graph["a"].markForwardDone();
  EXPECT_EQ(broadcastCount(), broadcasts);
  EXPECT_EQ(signalCount(), signals);
}

/// Waits until as many have gone to sleep, all told.
bool waitsReach(int count) {
  for (int round = 0; round < 10'000 && waitCount() < count; ++round) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  // Who counts itself in sleeps as soon as it has given the lock back.
  const ScopedLock lock(graphLock);
  return waitCount() >= count;
}

TEST(Wake, IsGivenToTheWaitersOfANodeWhenItIsDone) {
  DrawnGraph graph("a");
  Executor executor(0, false);
  graph["a"].scheduleForward(executor);
  const int asleep = waitCount();
  const int broadcasts = broadcastCount();
  const auto first = std::async(std::launch::async, [&graph] { graph["a"].waitForward(); });
  const auto second = std::async(std::launch::async, [&graph] { graph["a"].waitForward(); });
  ASSERT_TRUE(waitsReach(asleep + 2));
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(broadcastCount(), broadcasts + 1);
  for (const auto* waiter : {&first, &second}) {
    EXPECT_EQ(waiter->wait_for(std::chrono::seconds(20)), std::future_status::ready);
  }
}

TEST(Wake, IsNotGivenWhereNobodyWaits) {
  DrawnGraph graph("a");
  Executor executor(0, false);
  const int broadcasts = broadcastCount();
  graph["a"].scheduleForward(executor);
  EXPECT_TRUE(step(executor));
  graph["a"].scheduleReverse(executor);
  EXPECT_TRUE(step(executor));
  graph["a"].waitReverse();
  EXPECT_EQ(broadcastCount(), broadcasts);
}

TEST(Wake, IsNotGivenWhereNobodyWaitsAnyLonger) {
  DrawnGraph graph("a");
  Executor executor(0, false);
  graph["a"].scheduleForward(executor);
  const int asleep = waitCount();
  const auto waiter = std::async(std::launch::async, [&graph] { graph["a"].waitForward(); });
  ASSERT_TRUE(waitsReach(asleep + 1));
  EXPECT_TRUE(step(executor));
  ASSERT_EQ(waiter.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  const int broadcasts = broadcastCount();
  graph["a"].scheduleReverse(executor);
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(broadcastCount(), broadcasts);
}

// The one worker goes from node to node by itself: it is woken for the first one at most.
TEST(Wake, IsGivenToTheOnlyWorkerOnceAtMostForAWholeGraph) {
  DrawnGraph graph("a>b>c>d>e a>f>g>e h i j>k");
  Executor executor(1, false);
  const int before = signalCount();
  Graph(graph.nodes()).runForward(executor);
  EXPECT_LE(signalCount(), before + 1);
  EXPECT_EQ(graph.journal().names().size(), 11U);
}

TEST(Wake, WithoutAReasonLeavesTheWorkersReadyForMore) {
  constexpr int kWorkers = 2;
  const int before = waitCount();
  Executor executor(kWorkers, false);
  ASSERT_TRUE(waitsReach(before + kWorkers));
  pthread_cond_t* const bed = lastCondition();
  for (int round = 0; round < 3; ++round) {
    DrawnGraph graph("a>b>c d>e");
    const auto run = std::async(std::launch::async,
                                [&graph, &executor] { Graph(graph.nodes()).runForward(executor); });
    const bool isDone = run.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    EXPECT_TRUE(isDone) << "nobody looks for what is ready, round " << round;
    const int asleep = waitCount();
    wakeForNoReason(bed);
    ASSERT_TRUE(waitsReach(asleep + 1));
    if (!isDone) break;
  }
}

TEST(ConditionDeathTest, RefusesToWaitWithTheLockHeldTwice) {
#ifdef NDEBUG
  GTEST_SKIP() << "checked by an assertion, which this build does not have";
#else
  EXPECT_DEATH(
      {
        DrawnGraph graph("a");
        const ScopedLock outer(graphLock);
        [](Node& node) NO_THREAD_SAFETY_ANALYSIS { node.waitForward(); }(graph["a"]);
      },
      "depth_ == 1");
#endif
}

}  // namespace
}  // namespace bootforge::test
