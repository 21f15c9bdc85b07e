// Who is woken, and when. A wake costs more than many a node.
#include <gtest/gtest.h>
#include <unistd.h>

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

TEST(Wake, IsGivenToTheWaitersOfANodeWhenItIsDone) {
  DrawnGraph graph("a");
  Executor executor(0, false);
  graph["a"].scheduleForward(executor);
  const int before = broadcastCount();
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(broadcastCount(), before + 1);
  graph["a"].scheduleReverse(executor);
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(broadcastCount(), before + 2);
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
