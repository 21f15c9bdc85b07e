#include "graph/node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/double/faults.h"
#include "tests/unit/graph/graph_builder.h"
#include "util/exception.h"

namespace bootforge::test {
namespace {

using State = Node::State;
using testing::ElementsAre;
using testing::IsEmpty;

Node::List prerequisitesOf(const Node& node) {
  ScopedLock lock(graphLock);
  return node.prerequisites();
}

Node::List dependentsOf(const Node& node) {
  ScopedLock lock(graphLock);
  return node.dependents();
}

std::int32_t weightOf(Node& node) {
  ScopedLock lock(graphLock);
  return node.schedulingWeight();
}

TEST(Node, IsBornIdleWithItsNameItsClassAndNoNeighbours) {
  Journal journal;
  std::string name = "storage";
  const TestNode node(name, 3, journal);
  name = "overwritten";
  EXPECT_EQ(node.name(), "storage");
  EXPECT_EQ(node.schedulingClass(), 3U);
  EXPECT_EQ(stateOf(node), State::Idle);
  EXPECT_THAT(prerequisitesOf(node), IsEmpty());
  EXPECT_THAT(dependentsOf(node), IsEmpty());
}

TEST(Node, SaysWhyWhenThereIsNoConditionVariable) {
  Journal journal;
  doubles::resetFaults();
  doubles::failCall("pthread_cond_init", {ENOMEM});
  try {
    const TestNode node("a", 1, journal);
    ADD_FAILURE() << "made without a condition variable";
  } catch (const Exception& failure) {
    EXPECT_STREQ(failure.what(), "Condition variable for Node could not be initialized");
  }
  const TestNode second("b", 1, journal);
  EXPECT_EQ(stateOf(second), State::Idle);
}

TEST(Node, StoresAnEdgeAtBothEndsInTheOrderOfLinking) {
  Journal journal;
  TestNode a("a", 1, journal);
  TestNode b("b", 1, journal);
  TestNode c("c", 1, journal);
  TestNode d("d", 1, journal);
  d.addPrerequisite(b);
  d.addPrerequisite(a);
  c.addDependent(d);
  a.addDependent(c);
  EXPECT_THAT(prerequisitesOf(d), ElementsAre(&b, &a, &c));
  EXPECT_THAT(dependentsOf(a), ElementsAre(&d, &c));
  EXPECT_THAT(dependentsOf(b), ElementsAre(&d));
  EXPECT_THAT(prerequisitesOf(c), ElementsAre(&a));
  EXPECT_THAT(dependentsOf(c), ElementsAre(&d));
}

TEST(Node, WithoutPrerequisitesIsQueuedAtOnceAndHasDepthZero) {
  DrawnGraph graph("a");
  EXPECT_EQ(weightOf(graph["a"]), 0);
  Executor executor(0, false);
  graph["a"].scheduleForward(executor);
  EXPECT_EQ(stateOf(graph["a"]), State::ForwardQueued);
  EXPECT_EQ(graph.journal().text(), "");
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(stateOf(graph["a"]), State::ForwardDone);
  EXPECT_EQ(graph.journal().text(), "a");
}

TEST(Node, IsEnqueuedOnceHoweverOftenItIsScheduled) {
  DrawnGraph graph("a");
  Executor executor(0, false);
  graph["a"].scheduleForward(executor);
  graph["a"].scheduleForward(executor);
  EXPECT_EQ(stateOf(graph["a"]), State::ForwardQueued);
  EXPECT_TRUE(step(executor));
  EXPECT_FALSE(step(executor));
  graph["a"].scheduleForward(executor);
  EXPECT_EQ(stateOf(graph["a"]), State::ForwardDone);
  EXPECT_FALSE(step(executor));
  EXPECT_EQ(graph.journal().text(), "a");
}

TEST(Node, AtTheEndOfAChainPullsTheWholeChainThrough) {
  DrawnGraph graph("a>b>c");
  Executor executor(0, false);
  graph["c"].scheduleForward(executor);
  EXPECT_EQ(graph.states(), "a=3 b=1 c=1");
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(graph.states(), "a=5 b=3 c=1");
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(graph.states(), "a=5 b=5 c=3");
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(graph.states(), "a=5 b=5 c=5");
  EXPECT_FALSE(step(executor));
  EXPECT_EQ(graph.journal().text(), "a b c");
}

TEST(Node, AtTheHeadOfAChainPullsTheWholeChainThroughInReverse) {
  DrawnGraph graph("a>b>c");
  Executor executor(0, false);
  graph["a"].scheduleReverse(executor);
  EXPECT_EQ(graph.states(), "a=2 b=2 c=4");
  EXPECT_TRUE(step(executor));
  EXPECT_EQ(graph.states(), "a=2 b=4 c=6");
  graph["c"].scheduleReverse(executor);
  graph["b"].scheduleReverse(executor);
  EXPECT_EQ(graph.states(), "a=2 b=4 c=6");
  drain(executor);
  EXPECT_EQ(graph.states(), "a=6 b=6 c=6");
  EXPECT_EQ(graph.journal().text(), "c b a");
}

// a   b   c
//  \  |  /
//     d          The first one is unfinished, and the others are started all the same.
TEST(Node, StartsEveryIdleAncestorInOneCall) {
  DrawnGraph graph("a>d b>d c>d");
  Executor executor(0, false);
  graph["d"].scheduleForward(executor);
  EXPECT_EQ(graph.states(), "a=3 d=1 b=3 c=3");
  drain(executor);
  EXPECT_EQ(graph.journal().text(), "a b c d");
}

// e - b - a       e's ancestors are looked at depth first, neighbours in the order of linking.
//  \   \- c
//   d
TEST(Node, StartsItsAncestorsDepthFirst) {
  DrawnGraph graph("a>b c>b b>e d>e");
  Executor executor(0, false);
  graph["e"].scheduleForward(executor);
  EXPECT_EQ(graph.states(), "a=3 b=1 c=3 e=1 d=3");
  // a and c have a longer chain behind them than d, which came before b.
  drain(executor);
  EXPECT_EQ(graph.journal().text(), "a c d b e");
}

//     a
//   / | \        Linked c, b, d.
//  c  b  d
TEST(Node, OffersItsDependentsInTheOrderOfLinking) {
  DrawnGraph graph("a>c a>b a>d");
  EXPECT_EQ(graph.runForward(), "a c b d");
}

TEST(Node, OffersItsPrerequisitesInTheOrderOfLinkingInReverse) {
  DrawnGraph graph("c>a b>a d>a");
  EXPECT_EQ(graph.runReverse(), "a c b d");
}

// a > b > d
//  \> c >/
TEST(Node, OfADiamondRunsOnce) {
  EXPECT_EQ(DrawnGraph("a>b>d a>c>d").runForward(), "a b c d");
  EXPECT_EQ(DrawnGraph("a>b>d a>c>d").runReverse(), "d b c a");
}

TEST(Node, LinkedTwiceToTheSameOneRunsOnce) {
  EXPECT_EQ(DrawnGraph("a>b a>b").runForward(), "a b");
  EXPECT_EQ(DrawnGraph("a>b a>b").runReverse(), "b a");
}

// Only what was scheduled takes part: the dependents of a node are not pulled in.
TEST(Node, LeavesDependentsAloneThatTakeNoPartInThePass) {
  DrawnGraph graph("a>b");
  Executor executor(0, false);
  graph["a"].scheduleForward(executor);
  drain(executor);
  EXPECT_EQ(graph.states(), "a=5 b=0");
  graph["b"].scheduleForward(executor);
  EXPECT_EQ(graph.states(), "a=5 b=3");
}

TEST(Node, OfACycleWaitsForEver) {
  DrawnGraph graph("a>b>a");
  EXPECT_EQ(graph.runForward(), "");
  EXPECT_EQ(graph.states(), "a=1 b=1");
  DrawnGraph reverse("a>b>a");
  EXPECT_EQ(reverse.runReverse(), "");
  EXPECT_EQ(reverse.states(), "a=2 b=2");
}

TEST(Node, ThatWaitsForItselfWaitsForEver) {
  DrawnGraph graph("a>a b");
  EXPECT_EQ(graph.runForward(), "b");
  EXPECT_EQ(graph.states(), "a=1 b=5");
}

// a > (b <> c) > d, and e beside it.
TEST(Node, BehindACycleWaitsWhileTheOthersRun) {
  DrawnGraph graph("a>b>c>b c>d e");
  EXPECT_EQ(graph.runForward(), "a e");
  EXPECT_EQ(graph.states(), "a=5 b=1 c=1 d=1 e=5");
}

TEST(Node, MarkedAsDoneIsNotRunAndReleasesNobody) {
  DrawnGraph graph("a>b");
  Executor executor(0, false);
  graph["b"].scheduleForward(executor);
  EXPECT_EQ(graph.states(), "a=3 b=1");
  DrawnGraph marked("a>b c>b");
  marked["b"].scheduleForward(executor);
  EXPECT_EQ(marked.states(), "a=3 b=1 c=3");
  marked["a"].markForwardDone();
  marked["c"].markForwardDone();
  EXPECT_EQ(marked.states(), "a=5 b=1 c=5");
}

TEST(Node, MarkedAsDoneBeforeTheRunCountsAsFinished) {
  DrawnGraph graph("a>b c>b");
  graph["a"].markForwardDone();
  EXPECT_EQ(graph.runForward(), "c b");
  EXPECT_EQ(graph.states(), "a=5 b=5 c=5");
}

TEST(Node, MarkedAsDoneDoesNotPullInWhatItWaitsFor) {
  DrawnGraph graph("a>b>c");
  graph["b"].markForwardDone();
  Executor executor(0, false);
  graph["c"].scheduleForward(executor);
  EXPECT_EQ(graph.states(), "a=0 b=5 c=3");
}

// a > b > c: c was stopped, and counts as finished for a forward pass too.
TEST(Node, DoneInReverseCountsAsFinishedForward) {
  DrawnGraph graph("a>b>c");
  Executor executor(0, false);
  graph["c"].scheduleReverse(executor);
  drain(executor);
  Journal journal;
  TestNode late("late", 1, journal);
  late.addPrerequisite(graph["c"]);
  late.scheduleForward(executor);
  EXPECT_EQ(graph.states(), "a=0 b=0 c=6");
  EXPECT_EQ(stateOf(late), State::ForwardQueued);
  drain(executor);
  EXPECT_EQ(stateOf(late), State::ForwardDone);
}

TEST(Node, DoneForwardCountsAsFinishedInReverse) {
  DrawnGraph graph("a>b");
  Executor executor(0, false);
  graph["b"].scheduleForward(executor);
  drain(executor);
  DrawnGraph other("x");
  other["x"].addDependent(graph["a"]);
  other["x"].scheduleReverse(executor);
  EXPECT_EQ(stateOf(other["x"]), State::ReverseQueued);
  drain(executor);
  EXPECT_EQ(graph.states() + " " + other.states(), "a=5 b=5 x=6");
}

// What is under way in the other pass counts as finished as well.
TEST(Node, WaitingInReverseCountsAsFinishedForward) {
  DrawnGraph graph("a>b b>c");
  Executor executor(0, false);
  graph["b"].scheduleReverse(executor);
  EXPECT_EQ(graph.states(), "a=0 b=2 c=4");
  DrawnGraph other("x");
  other["x"].addPrerequisite(graph["b"]);
  other["x"].addPrerequisite(graph["c"]);
  other["x"].scheduleForward(executor);
  EXPECT_EQ(stateOf(other["x"]), State::ForwardQueued);
}

TEST(Node, MayRunInBothPassesOneAfterTheOther) {
  DrawnGraph graph("a>b>c");
  EXPECT_EQ(graph.runForward(), "a b c");
  EXPECT_EQ(graph.runReverse(), "a b c c b a");
  EXPECT_EQ(graph.states(), "a=6 b=6 c=6");
}

// a > b > d    Lengths: a 0, b 1, c 0, d 2 from above; a 2, b 1, c 1, d 0 from below.
//     c >/
TEST(NodeWeight, IsTheLongestChainBehindTheNodeInItsPass) {
  DrawnGraph graph("a>b>d c>d");
  EXPECT_EQ(weightOf(graph["a"]), 0);
  EXPECT_EQ(weightOf(graph["b"]), 1);
  EXPECT_EQ(weightOf(graph["c"]), 0);
  EXPECT_EQ(weightOf(graph["d"]), 2);
  Executor executor(0, false);
  for (Node* node : graph.nodes()) node->scheduleForward(executor);
  EXPECT_EQ(weightOf(graph["a"]), 2);
  EXPECT_EQ(weightOf(graph["c"]), 1);
  // In any state but ForwardQueued it is the chain above.
  EXPECT_EQ(weightOf(graph["b"]), 1);
  EXPECT_EQ(weightOf(graph["d"]), 2);
  drain(executor);
  EXPECT_EQ(weightOf(graph["a"]), 0);
  EXPECT_EQ(weightOf(graph["d"]), 2);
}

TEST(NodeWeight, IsTheChainAboveInReverse) {
  DrawnGraph graph("a>b>d c>d");
  Executor executor(0, false);
  graph["d"].scheduleReverse(executor);
  EXPECT_EQ(stateOf(graph["d"]), State::ReverseQueued);
  EXPECT_EQ(weightOf(graph["d"]), 2);
}

// An edge resets the lengths of its two ends and of nobody further along.
TEST(NodeWeight, IsRememberedUntilAnEdgeOfTheNodeChanges) {
  DrawnGraph graph("a>b>c x");
  EXPECT_EQ(weightOf(graph["c"]), 2);
  graph["a"].addPrerequisite(graph["x"]);
  EXPECT_EQ(weightOf(graph["a"]), 1);
  EXPECT_EQ(weightOf(graph["b"]), 1) << "still as it was computed first";
  EXPECT_EQ(weightOf(graph["c"]), 2) << "still as it was computed first";
  graph["a"].addDependent(graph["c"]);
  EXPECT_EQ(weightOf(graph["c"]), 2) << "computed anew from b (1) and a (1)";
}

// d waits for itself through e, beneath a, which is ready like x and y.
TEST(NodeWeight, OfANodeAboveACycleIsFinite) {
  DrawnGraph graph("x a>d>e>d y>z");
  EXPECT_EQ(graph.runForward(), "a y x z");
  EXPECT_EQ(graph.states(), "x=5 a=5 d=1 e=1 y=5 z=5");
}

TEST(NodeWeight, OfANodeBelowACycleIsFiniteInReverse) {
  DrawnGraph graph("d>e>d e>a x y");
  EXPECT_EQ(graph.runReverse(), "a x y");
  EXPECT_EQ(graph.states(), "d=2 e=2 a=6 x=6 y=6");
}

TEST(NodeDestruction, LeavesNoEdgesBehind) {
  Journal journal;
  TestNode before("before", 1, journal);
  TestNode after("after", 1, journal);
  after.addPrerequisite(before);
  {
    TestNode gone("gone", 1, journal);
    gone.addPrerequisite(before);
    gone.addPrerequisite(before);
    gone.addDependent(after);
    gone.addPrerequisite(gone);
    EXPECT_EQ(dependentsOf(before).size(), 3U);
  }
  EXPECT_THAT(dependentsOf(before), ElementsAre(&after));
  EXPECT_THAT(prerequisitesOf(after), ElementsAre(&before));
}

TEST(NodeDestruction, DoesNotDisturbARunThatIsUnderWay) {
  DrawnGraph graph("a>b c>b");
  Executor executor(0, false);
  {
    // Finished, and counted so by b, when it goes: b must not take another one for it.
    Journal journal;
    TestNode gone("gone", 1, journal);
    gone.markForwardDone();
    TestNode late("late", 1, journal);
    late.addPrerequisite(gone);
    late.addPrerequisite(graph["c"]);
    late.scheduleForward(executor);
    EXPECT_EQ(stateOf(late), State::ForwardWaiting);
  }
  for (Node* node : graph.nodes()) node->scheduleForward(executor);
  drain(executor);
  EXPECT_EQ(graph.journal().text(), "c a b");
}

}  // namespace
}  // namespace bootforge::test
