// Executors with real threads. What comes in which order is shown with no threads at all, in
// executor_order_test.cpp.
#include "graph/executor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>

#include "graph/graph.h"
#include "tests/double/faults.h"
#include "tests/unit/graph/graph_builder.h"
#include "util/exception.h"

namespace bootforge::test {
namespace {

using testing::ElementsAre;

// As many threads as there are, and nothing else, meet here.
class Meeting {
 public:
  explicit Meeting(unsigned count) { pthread_barrier_init(&barrier_, nullptr, count); }
  ~Meeting() { pthread_barrier_destroy(&barrier_); }
  Meeting(const Meeting&) = delete;
  Meeting& operator=(const Meeting&) = delete;
  void wait() { pthread_barrier_wait(&barrier_); }

 private:
  pthread_barrier_t barrier_;
};

TEST(Executor, WithoutThreadsRunsNothing) {
  for (const std::int32_t threads : {0, -1, INT32_MIN}) {
    DrawnGraph graph("a>b c");
    {
      Executor executor(threads, false);
      for (Node* node : graph.nodes()) node->scheduleForward(executor);
    }
    EXPECT_EQ(graph.states(), "a=3 b=1 c=3");
    EXPECT_EQ(graph.journal().text(), "");
  }
}

TEST(Executor, WithNothingToDoIsDestroyedAtOnce) {
  for (const std::int32_t threads : {1, 2, 16}) {
    Executor executor(threads, false);
  }
}

TEST(Executor, WithOneThreadRunsTheGraphInTheOrderOfChoice) {
  DrawnGraph graph("s:3>t:3 x a>b>c y>z");
  Executor executor(1, false);
  Graph(graph.nodes()).runForward(executor);
  EXPECT_EQ(graph.journal().text(), "a y b x z c s t");
}

TEST(Executor, WithOneThreadRunsTheGraphInReverse) {
  DrawnGraph graph("c a>b>d");
  Executor executor(1, false);
  Graph(graph.nodes()).runReverse(executor);
  EXPECT_EQ(graph.journal().text(), "d b c a");
  EXPECT_EQ(graph.states(), "c=6 a=6 b=6 d=6");
}

// As many nodes as threads, each of which waits for all the others.
TEST(Executor, RunsAsManyNodesAtOnceAsItHasThreads) {
  DrawnGraph graph("a b c d");
  Meeting meeting(4);
  for (const char* name : {"a", "b", "c", "d"}) {
    graph[name].onRun = [&meeting](Executor&) { meeting.wait(); };
  }
  Executor executor(4, false);
  Graph(graph.nodes()).runForward(executor);
  EXPECT_EQ(graph.states(), "a=5 b=5 c=5 d=5");
}

TEST(Executor, NeverRunsMoreNodesAtOnceThanItHasThreads) {
  DrawnGraph graph("a b c d e f g h i j k l m n o p q r s t");
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  for (Node* node : graph.nodes()) {
    static_cast<TestNode*>(node)->onRun = [&](Executor&) {
      const int now = ++running;
      for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
      }
      std::this_thread::yield();
      --running;
    };
  }
  Executor executor(3, false);
  Graph(graph.nodes()).runForward(executor);
  EXPECT_LE(most, 3);
  EXPECT_EQ(graph.journal().names().size(), 20U);
}

// All workers sleep when a has run; each that is needed must be woken. Then the same further on.
//    a > b1..b4 > c > d1..d4
TEST(Executor, WakesAllItsWorkersWhenTheyAreNeeded) {
  DrawnGraph graph("a>b1>c a>b2>c a>b3>c a>b4>c c>d1 c>d2 c>d3 c>d4");
  Meeting first(4);
  Meeting second(4);
  for (const char* number : {"1", "2", "3", "4"}) {
    graph[std::string("b") + number].onRun = [&first](Executor&) { first.wait(); };
    graph[std::string("d") + number].onRun = [&second](Executor&) { second.wait(); };
  }
  Executor executor(4, false);
  Graph(graph.nodes()).runForward(executor);
  EXPECT_EQ(graph.journal().names().size(), 10U);
}

//  a \        The two finish at the same moment on two threads.
//     > c
//  b /
TEST(Executor, QueuesANodeOnceWhenItsLastTwoPrerequisitesFinishAtOnce) {
  Executor executor(2, false);
  for (int round = 0; round < 2000; ++round) {
    DrawnGraph graph("a>c b>c");
    Meeting meeting(2);
    std::atomic<int> runs = 0;
    graph["a"].onRun = graph["b"].onRun = [&meeting](Executor&) { meeting.wait(); };
    graph["c"].onRun = [&runs](Executor&) { ++runs; };
    Graph(graph.nodes()).runForward(executor);
    ASSERT_EQ(graph.states(), "a=5 c=5 b=5");
    ASSERT_EQ(runs, 1);
  }
}

TEST(Executor, MayRunSeveralGraphsOneAfterTheOther) {
  Executor executor(2, false);
  for (int round = 0; round < 100; ++round) {
    DrawnGraph graph("a>b>c");
    Graph(graph.nodes()).runForward(executor);
    ASSERT_EQ(graph.journal().text(), "a b c");
  }
}

TEST(Executor, LetsGoOfTheLockWhileANodeWorks) {
  DrawnGraph graph("a");
  graph["a"].onRun = [&graph](Executor&) { std::thread([&graph] { stateOf(graph["a"]); }).join(); };
  Executor executor(1, false);
  Graph(graph.nodes()).runForward(executor);
  EXPECT_EQ(graph.states(), "a=5");
}

TEST(Executor, RunsWhatANodeSchedulesWhileItWorks) {
  DrawnGraph graph("a");
  DrawnGraph late("b");
  graph["a"].onRun = [&late](Executor& executor) { late["b"].scheduleForward(executor); };
  Executor executor(1, false);
  Graph(graph.nodes()).runForward(executor);
  late["b"].waitForward();
  EXPECT_EQ(late.states(), "b=5");
}

TEST(Executor, WakesEveryThreadThatWaitsForANode) {
  DrawnGraph graph("a");
  Meeting meeting(4);
  graph["a"].onRun = [&meeting](Executor&) { meeting.wait(); };
  Executor executor(1, false);
  graph["a"].scheduleForward(executor);
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i) {
    waiters.emplace_back([&] {
      meeting.wait();
      graph["a"].waitForward();
    });
  }
  for (std::thread& waiter : waiters) waiter.join();
  EXPECT_EQ(graph.states(), "a=5");
}

// Tells when its thread has ended.
struct EndOfThread {
  std::promise<void>* promise = nullptr;
  ~EndOfThread() {
    if (promise != nullptr) promise->set_value();
  }
};
thread_local EndOfThread endOfThread;

// Two workers. The idle one ends as soon as the executor is being destroyed, while a still works; a
// then makes b ready, and releases c by finishing. Neither may be run any more.
TEST(Executor, BeingDestroyedRunsNothingMoreThanWhatRunsAlready) {
  DrawnGraph graph("a>c b idle");
  std::promise<void> aWorks;
  std::promise<void> otherWorkerEnded;
  graph["idle"].onRun = [&](Executor&) {
    aWorks.get_future().wait();
    endOfThread.promise = &otherWorkerEnded;
  };
  graph["a"].onRun = [&](Executor& executor) {
    aWorks.set_value();
    otherWorkerEnded.get_future().wait();
    graph["b"].scheduleForward(executor);
  };
  auto executor = std::make_unique<Executor>(2, false);
  graph["c"].scheduleForward(*executor);
  graph["idle"].scheduleForward(*executor);
  graph["idle"].waitForward();
  executor.reset();
  EXPECT_EQ(graph.journal().text(), "idle a");
  EXPECT_EQ(graph.states(), "a=5 c=3 b=3 idle=5");
}

TEST(Executor, SaysWhyWhenThereIsNoConditionVariable) {
  doubles::resetFaults();
  doubles::failCall("pthread_cond_init", {EAGAIN});
  try {
    const Executor executor(2, false);
    ADD_FAILURE() << "made without a condition variable";
  } catch (const Exception& failure) {
    EXPECT_STREQ(failure.what(), "Condition variable for Executor could not be initialized");
  }
  EXPECT_EQ(doubles::callCount("pthread_create"), 0);
}

/// The text of the failure to make an executor of so many threads.
std::string failureToMake(std::int32_t threads) {
  try {
    const Executor executor(threads, false);
    return "none";
  } catch (const Exception& failure) {
    return failure.what();
  }
}

TEST(Executor, SaysHowManyThreadsItGotWhenThereAreNotEnough) {
  doubles::resetFaults();
  { const Executor executor(1, false); }
  if (doubles::callCount("pthread_create") == 0) {
    GTEST_SKIP() << "the C++ library is a shared one here, its calls cannot be made to fail";
  }
  doubles::failCall("pthread_create", {.error = EAGAIN, .skip = 3});
  EXPECT_EQ(failureToMake(8), "Could not create enough execution threads. (3 created, 8requested)");
  doubles::failCall("pthread_create", {.error = EAGAIN});
  EXPECT_EQ(failureToMake(1), "Could not create enough execution threads. (0 created, 1requested)");
  EXPECT_EQ(failureToMake(8), "none");
}

// The same with a limit of the system. It counts the threads of a user, so the child becomes a user
// that has no others.
TEST(Executor, EndsTheThreadsThatItGotWhenThereAreNotEnough) {
  constexpr uid_t kNobodyElse = 54321;
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const rlimit limit{4, 4};
    if (::setrlimit(RLIMIT_NPROC, &limit) != 0 || ::setuid(kNobodyElse) != 0) ::_exit(77);
    const std::string text = failureToMake(8);
    const std::size_t end = text.find(" created, 8requested)");
    const bool right = text.starts_with("Could not create enough execution threads. (") &&
                       end != std::string::npos;
    // The threads are gone, so as many can be had again; the system's count of them goes down a
    // little later than they are joined.
    int attempts = 0;
    while (failureToMake(8) != text && attempts < 1000) ++attempts;
    ::_exit(right && attempts < 1000 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "no other user here";
  EXPECT_EQ(status, 0);
}

TEST(ExecutorDeathTest, EndsTheProcessWhenANodeThrows) {
  EXPECT_EXIT(
      {
        DrawnGraph graph("a>b");
        graph["a"].onRun = [](Executor&) { throw std::runtime_error("escaped"); };
        Executor executor(1, false);
        Graph(graph.nodes()).runForward(executor);
        ::_exit(0);
      },
      testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace bootforge::test
