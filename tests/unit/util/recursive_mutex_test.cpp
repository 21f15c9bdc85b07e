#include "util/recursive_mutex.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "tests/double/faults.h"
#include "util/exception.h"
#include "util/graph_lock.h"

namespace bootforge::test {
namespace {

// Before main, and before the constructors of most other files have run.
const bool takenBeforeMain = [] {
  const ScopedLock outer(graphLock);
  const ScopedLock inner(graphLock);
  return true;
}();

/// Returns when another thread has had the lock: never, while this one holds it.
void letAnotherThreadHave(RecursiveMutex& mutex) {
  std::thread([&mutex] { const ScopedLock lock(mutex); }).join();
}

TEST(RecursiveMutex, IsUsableBeforeMain) {
  EXPECT_TRUE(takenBeforeMain);
  letAnotherThreadHave(graphLock);
}

TEST(RecursiveMutex, IsHadAgainByItsOwnerAndFreeWhenGivenBackAsOften) {
  RecursiveMutex mutex;
  {
    const ScopedLock first(mutex);
    {
      const ScopedLock second(mutex);
      const ScopedLock third(mutex);
    }
    const ScopedLock fourth(mutex);
  }
  letAnotherThreadHave(mutex);
}

TEST(RecursiveMutex, KeepsOtherThreadsOut) {
  RecursiveMutex mutex;
  int count = 0;  // guarded by the mutex alone
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 5000; ++turn) {
        const ScopedLock outer(mutex);
        const int before = count;
        { const ScopedLock inner(mutex); }
        count = before + 1;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 20000);
}

TEST(ScopedLock, GivenBackEarlyIsNotGivenBackTwice) {
  RecursiveMutex mutex;
  const ScopedLock outer(mutex);
  {
    ScopedLock inner(mutex);
    inner.release();
  }
  // Still held once: only then may a thread wait, and only then does this one let the other in.
  Condition condition("none");
  bool notified = false;
  std::thread other([&] {
    const ScopedLock lock(mutex);
    notified = true;
    condition.notifyAll();
  });
  while (!notified) condition.wait(mutex);
  other.join();
}

TEST(Condition, SaysWhatItWasToldToSayWhenThereIsNone) {
  doubles::resetFaults();
  doubles::failCall("pthread_cond_init", {ENOMEM});
  try {
    const Condition condition("no condition for me");
    ADD_FAILURE() << "made without a condition variable";
  } catch (const Exception& failure) {
    EXPECT_STREQ(failure.what(), "no condition for me");
  }
}

TEST(Condition, LetsGoOfTheLockWhileItWaitsAndHasItOnceAfterwards) {
  RecursiveMutex mutex;
  Condition condition("none");
  int turn = 0;
  std::thread other([&] {
    const ScopedLock lock(mutex);
    for (int i = 0; i < 1000; ++i) {
      while (turn % 2 == 0) condition.wait(mutex);
      ++turn;
      condition.notifyOne();
    }
  });
  {
    const ScopedLock lock(mutex);
    for (int i = 0; i < 1000; ++i) {
      ++turn;
      condition.notifyOne();
      while (turn % 2 != 0) condition.wait(mutex);
    }
  }
  other.join();
  EXPECT_EQ(turn, 2000);
  letAnotherThreadHave(mutex);
}

TEST(Condition, WakesEverybody) {
  RecursiveMutex mutex;
  Condition condition("none");
  bool go = false;
  int waiting = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      const ScopedLock lock(mutex);
      ++waiting;
      condition.notifyAll();
      while (!go) condition.wait(mutex);
    });
  }
  {
    const ScopedLock lock(mutex);
    while (waiting < 4) condition.wait(mutex);
    go = true;
    condition.notifyAll();
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace bootforge::test
