// An executor process that dies, and the client that brings another.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <mutex>
#include <set>
#include <thread>

#include "cli/hypcli_executor.h"
#include "tests/double/faults.h"
#include "tests/double/script.h"
#include "tests/support/sanitizer.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/cli/executor_fixture.h"
#include "util/exception.h"
#include "util/graph_lock.h"

namespace bootforge {
namespace {

using doubles::cli;
using doubles::logLine;
using doubles::script;
using doubles::waitForRecord;
using testing::ElementsAre;
using testing::StartsWith;

const doubles::Record kRefused = logLine(2, "Failed connecting to executor Connection refused\n");

class Restart : public ExecutorTest {};

TEST_F(Restart, AnExecutorThatWasNeverStartedIsStarted) {
  client().runCommand("a");
  EXPECT_TRUE(waitForRecord(kPolling));
  EXPECT_THAT(logRecords(),
              testing::UnorderedElementsAre(
                  logLine(2, "Failed connecting to executor No such file or directory\n"),
                  kResetRequested, kPolling));
}

TEST_F(Restart, AnExecutorThatDiedBetweenTwoCommandsIsReplaced) {
  const Process& first = startExecutor();
  client().runCommand("a");
  first.kill();
  client().runCommand("b");
  EXPECT_TRUE(waitForRecord(kPolling, 2));
  EXPECT_THAT(logRecords(),
              ElementsAre(kResetRequested, kPolling, kRefused, kResetRequested, kPolling));
}

TEST_F(Restart, AnExecutorThatDiesUnderACommandFailsIt) {
  script().commands["die"] = [](const auto&, auto&) { ::kill(::getpid(), SIGKILL); };
  const Process& first = startExecutor();
  EXPECT_THAT(exceptionOf([] { client().runCommand("die"); }),
              StartsWith("Failed to recieve command status from Executor: "));
  EXPECT_TRUE(first.waitForEnd());
  client().runCommand("after");
}

TEST_F(Restart, StopReturnsWhenTheExecutorDiesBeforeItAnswers) {
  script().commands["hang"] = doubles::waitsForFile("/never");
  const Process& executor = startExecutor();
  RawClient busy;
  busy.send("hang");
  ASSERT_TRUE(waitForRecord(cli("ExecuteCommand bootforge: hang")));
  doubles::resetFaults();
  Workers stopper;
  stopper.add(1, [] { client().stop(); });
  while (doubles::callCount("recv", doubles::Where::kThisProcess) == 0) std::this_thread::yield();
  executor.kill();
  stopper.join();
  EXPECT_EQ(logRecords().back(), kStopped);
}

TEST_F(Restart, IsMadeUnderTheGraphLock) {
  graphLock.lock();
  Workers worker;
  worker.add(1, [] { client().runCommand("a"); });
  EXPECT_TRUE(
      waitForRecord(logLine(2, "Failed connecting to executor No such file or directory\n")));
  EXPECT_EQ(doubles::callCount("fork"), 0);
  EXPECT_EQ(logRecords().size(), 1U);
  graphLock.unlock();
  worker.join();
  EXPECT_TRUE(waitForRecord(kPolling));
}

TEST_F(Restart, ACommandThatHangsHoldsNoLock) {
  script().commands["hang"] = doubles::waitsForFile("/go");
  startExecutor();
  Workers worker;
  worker.add(1, [] { client().runCommand("hang"); });
  ASSERT_TRUE(waitForRecord(cli("ExecuteCommand bootforge: hang")));
  graphLock.lock();
  graphLock.unlock();
  test::writeFile("/go", "");
  worker.join();
}

TEST_F(Restart, ManyWorkersThatFailAtOnceGetOneExecutor) {
  Workers workers;
  graphLock.lock();
  workers.add(4, [] { client().runCommand("a"); });
  EXPECT_TRUE(
      waitForRecord(logLine(2, "Failed connecting to executor No such file or directory\n"), 4));
  graphLock.unlock();
  workers.join();
  EXPECT_TRUE(waitForRecord(kPolling));
  EXPECT_EQ(executors().size(), 1U);
}

TEST_F(Restart, FourWorkersUnderLoadSurviveKilledExecutors) {
  if (test::kAddressSanitizer || test::kThreadSanitizer) {
    GTEST_SKIP() << "in a child forked while other threads allocate, a sanitizer's allocator may "
                    "stay locked; that of the C library does not";
  }
  constexpr int kKills = 8;
  startExecutor();
  std::atomic<bool> enough = false;
  std::atomic<int> succeeded = 0;
  std::mutex mutex;
  std::set<std::string> unexpected;
  Workers workers;
  workers.add(4, [&] {
    while (!enough) {
      try {
        client().runCommand("a");
        ++succeeded;
      } catch (const Exception& failure) {
        // A command whose executor is killed under it fails; nothing else may.
        const std::string text = failure.what();
        if (text.find("Failed to recieve command status from Executor: ") == 0) continue;
        if (text.find("Failed sending command to executor: ") == 0) continue;
        const std::lock_guard<std::mutex> lock(mutex);
        unexpected.insert(text);
      }
    }
  });
  for (int kill = 1; kill <= kKills; ++kill) {
    EXPECT_TRUE(waitForRecord(kPolling, kill));
    const int before = succeeded;
    while (succeeded < before + 20) std::this_thread::yield();
    executors().back().kill();
  }
  EXPECT_TRUE(waitForRecord(kPolling, kKills + 1));
  enough = true;
  workers.join();
  EXPECT_THAT(unexpected, testing::IsEmpty());
  EXPECT_EQ(executors().size(), std::size_t{kKills + 1});
  client().runCommand("after");
}

TEST_F(Restart, LeavesNoDescriptorAndNoChildBehind) {
  startExecutor();
  const int before = test::countOpenDescriptors();
  for (int i = 0; i < 3; ++i) {
    executors().back().kill();
    client().runCommand("a");
    EXPECT_TRUE(waitForRecord(kPolling, i + 2));
  }
  // The fixture holds one for each of the executors that it has looked at.
  EXPECT_EQ(test::countOpenDescriptors(), before + 2);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(Restart, OnlyTheLastConnectionOfStopStaysOpen) {
  const Process& executor = startExecutor();
  const int before = test::countOpenDescriptors();
  client().stop();
  EXPECT_TRUE(executor.waitForEnd());
  EXPECT_EQ(test::countOpenDescriptors(), before + 1);
  client().stop();
  EXPECT_EQ(test::countOpenDescriptors(), before + 1);
}

}  // namespace
}  // namespace bootforge
