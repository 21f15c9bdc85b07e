#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "graph/barrier_registry.h"
#include "graph/graph.h"
#include "graph/init_barrier.h"
#include "main/run_options.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "tests/support/barriers.h"
#include "tests/support/own_process.h"
#include "tests/unit/graph/graph_builder.h"
#include "tests/unit/graph/test_plugin.h"

namespace bootforge::test {
namespace {

using doubles::alert;
using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> namesOf(const std::vector<InitBarrier*>& barriers) {
  std::vector<std::string> names;
  for (const InitBarrier* barrier : barriers) names.push_back(barrier->name());
  return names;
}

/// Does a barrier's own work.
void run(InitBarrier& barrier) {
  Executor executor(0, false);
  barrier.run(executor);
}

TEST(BarrierRegistry, KnowsNoNamesAtFirst) {
  inOwnProcess([] {
    EXPECT_EQ(test::barriers().lookupBarrier("net", false), nullptr);
    EXPECT_THAT(test::barriers().allBarriers(), IsEmpty());
  });
}

TEST(BarrierRegistry, MakesABarrierOnceForAName) {
  inOwnProcess([] {
    InitBarrier* const made = test::barriers().lookupBarrier("net", true);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->name(), "net");
    EXPECT_EQ(made->schedulingClass(), 1U);
    EXPECT_EQ(made->dotAttributes(), " shape=box");
    EXPECT_EQ(test::barriers().lookupBarrier("net", true), made);
    EXPECT_EQ(test::barriers().lookupBarrier("net", false), made);
    EXPECT_THAT(test::barriers().allBarriers(), ElementsAre(made));
  });
}

TEST(BarrierRegistry, TellsNamesApartByEveryByte) {
  inOwnProcess([] {
    const std::string withZero("net\0work", 8);
    for (const std::string& name : {std::string("net"), std::string("Net"), std::string("net "),
                                    std::string(""), withZero, std::string("n\xC3\xA4t")}) {
      ASSERT_EQ(test::barriers().lookupBarrier(name, false), nullptr) << name;
      EXPECT_EQ(test::barriers().lookupBarrier(name, true)->name(), name);
    }
    EXPECT_EQ(test::barriers().allBarriers().size(), 6U);
  });
}

// A name comes before those that it begins, and bytes above 127 after all others.
TEST(BarrierRegistry, ListsBarriersInTheOrderOfTheirBytes) {
  inOwnProcess([] {
    for (const char* name : {"netz", "\xFF", "b", "net", "", "B", "a", "~", "networks"}) {
      test::barriers().lookupBarrier(name, true);
    }
    EXPECT_THAT(namesOf(test::barriers().allBarriers()),
                ElementsAre("", "B", "a", "b", "net", "networks", "netz", "~", "\xFF"));
  });
}

TEST(BarrierRegistry, PointsANameToAnotherBarrier) {
  inOwnProcess([] {
    InitBarrier* const first = test::barriers().lookupBarrier("net", true);
    InitBarrier* const second = &test::barriers().adopt(std::make_unique<InitBarrier>("second"));
    test::barriers().registerBarrier(*second, "net");
    EXPECT_EQ(test::barriers().lookupBarrier("net", false), second);
    EXPECT_EQ(test::barriers().lookupBarrier("second", false), nullptr);
    EXPECT_THAT(test::barriers().allBarriers(), ElementsAre(second));
    test::barriers().registerBarrier(*first, "other");
    EXPECT_THAT(test::barriers().allBarriers(), ElementsAre(second, first));
  });
}

TEST(BarrierRegistry, OfOneImageKnowsNothingOfAnother) {
  BarrierRegistry one;
  BarrierRegistry other;
  InitBarrier* const made = one.lookupBarrier("net", true);
  EXPECT_EQ(other.lookupBarrier("net", false), nullptr);
  EXPECT_NE(other.lookupBarrier("net", true), made);
  {
    const ScopedLock lock(graphLock);
    one.levels().push_back(10);
    EXPECT_THAT(other.levels(), IsEmpty());
  }
}

TEST(BarrierRegistry, GivesSeveralThreadsTheSameBarrier) {
  inOwnProcess([] {
    std::vector<std::vector<InitBarrier*>> found(4);
    std::vector<std::thread> threads;
    for (auto& list : found) {
      threads.emplace_back([&list] {
        for (int i = 0; i < 500; ++i)
          list.push_back(test::barriers().lookupBarrier(std::to_string(i), true));
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (const auto& list : found) EXPECT_EQ(list, found.front());
    EXPECT_EQ(test::barriers().allBarriers().size(), 500U);
  });
}

//  p1 \           / r1
//      > mount > <            In the order in which they were linked.
//  p2 /           \ r2
TEST(Milestone, StandsBetweenItsProvidersAndItsRequirers) {
  inOwnProcess([] {
    TestPlugin p1("p1");
    TestPlugin r1("r1");
    TestPlugin p2("p2");
    TestPlugin r2("r2");
    r1.require("mount");
    p1.provide("mount");
    r2.require("mount");
    p2.provide("mount");
    const InitBarrier& mount = *test::barriers().lookupBarrier("mount", false);
    ScopedLock lock(graphLock);
    EXPECT_THAT(mount.prerequisites(), ElementsAre(&p1, &p2));
    EXPECT_THAT(mount.dependents(), ElementsAre(&r1, &r2));
    EXPECT_THAT(p1.dependents(), ElementsAre(&mount));
    EXPECT_THAT(r1.prerequisites(), ElementsAre(&mount));
    EXPECT_THAT(p1.prerequisites(), IsEmpty());
    EXPECT_THAT(r1.dependents(), IsEmpty());
  });
}

TEST(Milestone, WaitsForAllItsProvidersAndThenReleasesItsRequirers) {
  inOwnProcess([] {
    Journal journal;
    TestPlugin r("r");
    TestPlugin p1("p1");
    TestPlugin p2("p2");
    for (TestPlugin* plugin : {&r, &p1, &p2}) {
      plugin->onStart = [&journal, plugin] { journal.add(plugin->name()); };
    }
    r.require("mount");
    p1.provide("mount");
    p2.provide("mount");
    Executor executor(0, false);
    r.scheduleForward(executor);
    EXPECT_TRUE(step(executor));
    EXPECT_EQ(stateOf(*test::barriers().lookupBarrier("mount", false)),
              Node::State::ForwardWaiting);
    drain(executor);
    EXPECT_EQ(journal.text(), "p1 p2 r");
    EXPECT_EQ(stateOf(*test::barriers().lookupBarrier("mount", false)), Node::State::ForwardDone);
  });
}

class ProviderCheck : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    RunOptions::instance() = RunOptions();
  }
  void TearDown() override { RunOptions::instance() = RunOptions(); }

  // No registry needed: the check looks at the barrier alone.
  InitBarrier barrier_{"storage-ready"};
  Journal journal_;
  TestNode b_{"b", 1, journal_};
  TestNode a_{"a", 1, journal_};
};

constexpr const char* kOneRequirer =
    "Bootforge dependency error: Initialization barrier \"storage-ready\" is not provided by any "
    "plugin but the following plugins require it: \"b\"";

TEST_F(ProviderCheck, IsSilentWhenThereIsAProvider) {
  barrier_.addPrerequisite(a_);
  barrier_.addDependent(b_);
  run(barrier_);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(ProviderCheck, RaisesAnAlertAndLogsWhenThereIsNone) {
  barrier_.addDependent(b_);
  run(barrier_);
  EXPECT_THAT(records(),
              ElementsAre(alert(kOneRequirer), logLine(3, std::string(kOneRequirer) + "\n")));
}

TEST_F(ProviderCheck, NamesAllRequirersInTheOrderOfLinking) {
  TestNode quoted("c \"d\", 100%s", 1, journal_);
  barrier_.addDependent(b_);
  barrier_.addDependent(a_);
  barrier_.addDependent(quoted);
  run(barrier_);
  const std::string message = std::string(kOneRequirer) + ", \"a\", \"c \"d\", 100%s\"";
  EXPECT_THAT(records(), ElementsAre(alert(message), logLine(3, message + "\n")));
}

TEST_F(ProviderCheck, NamesNobodyWhenNobodyRequiresIt) {
  run(barrier_);
  const std::string message =
      "Bootforge dependency error: Initialization barrier \"storage-ready\" is not provided by any "
      "plugin but the following plugins require it: ";
  EXPECT_THAT(records(), ElementsAre(alert(message), logLine(3, message + "\n")));
}

TEST_F(ProviderCheck, OnlyLogsInInvokeMode) {
  RunOptions::instance().invoke = true;
  barrier_.addDependent(b_);
  run(barrier_);
  EXPECT_THAT(records(), ElementsAre(logLine(3, std::string(kOneRequirer) + "\n")));
}

TEST_F(ProviderCheck, SurvivesAnAlertThatFails) {
  doubles::script().onAlert = doubles::throwsError("no kernel");
  barrier_.addDependent(b_);
  run(barrier_);
  EXPECT_THAT(records(), ElementsAre(logLine(3, "unable to raise system alert: no kernel.\n"),
                                     logLine(3, std::string(kOneRequirer) + "\n")));
}

TEST_F(ProviderCheck, SurvivesAnAlertThatFailsInAnUnknownWay) {
  doubles::script().onAlert = doubles::throwsOther();
  barrier_.addDependent(b_);
  run(barrier_);
  EXPECT_THAT(records(), ElementsAre(logLine(3, "unable to raise system alert.\n"),
                                     logLine(3, std::string(kOneRequirer) + "\n")));
}

TEST_F(ProviderCheck, DoesNotKeepTheRequirersFromRunning) {
  barrier_.addDependent(b_);
  barrier_.addDependent(a_);
  Executor executor(1, false);
  Graph({&a_, &b_}).runForward(executor);
  EXPECT_EQ(journal_.text(), "b a");
  EXPECT_EQ(stateOf(barrier_), Node::State::ForwardDone);
}

// A provider that was left out counts: it is done, and there.
TEST_F(ProviderCheck, IsSilentWhenTheProviderWasLeftOut) {
  barrier_.addPrerequisite(a_);
  barrier_.addDependent(b_);
  a_.markForwardDone();
  Executor executor(0, false);
  b_.scheduleForward(executor);
  drain(executor);
  EXPECT_EQ(journal_.text(), "b");
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(ProviderCheck, IsNotMadeInReverse) {
  barrier_.addDependent(b_);
  Executor executor(0, false);
  barrier_.scheduleReverse(executor);
  drain(executor);
  EXPECT_EQ(stateOf(barrier_), Node::State::ReverseDone);
  EXPECT_THAT(records(), IsEmpty());
}

//  a provides X and requires Y, b provides Y and requires X
TEST(Milestone, OfACycleKeepsItsMembersWaitingAndSaysNothing) {
  inOwnProcess([] {
    doubles::reset();
    TestPlugin a("a");
    TestPlugin b("b");
    a.provide("X");
    a.require("Y");
    b.provide("Y");
    b.require("X");
    Executor executor(0, false);
    a.scheduleForward(executor);
    b.scheduleForward(executor);
    EXPECT_FALSE(step(executor));
    EXPECT_EQ(stateOf(a), Node::State::ForwardWaiting);
    EXPECT_EQ(stateOf(b), Node::State::ForwardWaiting);
    EXPECT_THAT(records(), IsEmpty());
  });
}

}  // namespace
}  // namespace bootforge::test
