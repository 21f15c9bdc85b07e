// Starting an executor process, and everything that can keep one from starting.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <filesystem>
#include <thread>

#include "cli/hypcli_executor.h"
#include "tests/double/faults.h"
#include "tests/double/script.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/cli/executor_fixture.h"
#include "util/exception.h"

namespace bootforge {
namespace {

using doubles::callCount;
using doubles::failCall;
using doubles::Fault;
using doubles::logLine;
using doubles::Where;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Fault inTheChild(int error) { return {.error = error, .where = Where::kOtherProcesses}; }

/// A bound socket at the control socket's path.
UniqueFd bindSocket(int type) {
  UniqueFd socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, kSocketPath);
  EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return socket;
}

class Start : public ExecutorTest {
 protected:
  /// start() must fail because its child did, with this text in the log and status 255.
  static void expectChildFailure(const std::string& text) {
    siginfo_t end{};
    doubles::afterCall("fork", [&end] { ::waitid(P_ALL, 0, &end, WEXITED | WNOWAIT); });
    EXPECT_EQ(exceptionOf([] { HypcliExecutor::instance().start(); }),
              "Bootforge executor failed to start");
    EXPECT_EQ(end.si_code, CLD_EXITED);
    EXPECT_EQ(end.si_status, 255);
    EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, logLine(2, text)));
  }

  /// The child must not get the control socket's name.
  static void expectBindFailure() {
    expectChildFailure(
        "Unable to start executor: Failed to bind to executor control socket: Address already in "
        "use\n");
  }
};

TEST_F(Start, SaysWhatItDoesAndThenServes) {
  startExecutor();
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling));
  EXPECT_EQ(statusOf("a"), 0);
}

TEST_F(Start, TheFirstCommandNeedsNoWaiting) {
  HypcliExecutor::instance().start();
  HypcliExecutor::instance().runCommand("a");
  EXPECT_TRUE(doubles::waitForRecord(kPolling));
  EXPECT_EQ(callCount("connect", Where::kThisProcess), 2);
}

TEST_F(Start, ASecondStartOnlyOpensAndClosesOneConnection) {
  startExecutor();
  doubles::resetFaults();
  const std::size_t before = logRecords().size();
  HypcliExecutor::instance().start();
  EXPECT_EQ(callCount("connect", Where::kThisProcess), 1);
  EXPECT_EQ(callCount("fork"), 0);
  // The executor takes the connection for an empty command, whose status nobody waits for.
  EXPECT_TRUE(doubles::waitForRecord(kStatusNotSent));
  EXPECT_EQ(logRecords().size(), before + 1);
}

TEST_F(Start, ABusyExecutorWithAFullBacklogIsServing) {
  doubles::script().commands["hang"] = doubles::waitsForFile("/go");
  startExecutor();
  RawClient first;
  first.send("hang");
  ASSERT_TRUE(doubles::waitForRecord(doubles::cli("ExecuteCommand bootforge: hang")));
  std::vector<RawClient> waiting(17);  // one more than the backlog, as listen(2) counts
  doubles::resetFaults();
  HypcliExecutor::instance().start();
  EXPECT_EQ(callCount("fork"), 0);
  test::writeFile("/go", "");
  EXPECT_EQ(first.status(), 0);
}

TEST_F(Start, DescriptorZeroCountsAsNoConnection) {
  startExecutor();
  const UniqueFd saved(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  ::close(STDIN_FILENO);
  const std::string failure = exceptionOf([] { HypcliExecutor::instance().start(); });
  const bool leftOpen = ::fcntl(STDIN_FILENO, F_GETFD) != -1;
  ::dup2(saved.get(), STDIN_FILENO);
  EXPECT_EQ(failure, "Bootforge executor failed to start");
  EXPECT_FALSE(leftOpen);
  EXPECT_TRUE(doubles::waitForRecord(kResetRequested, 2));
}

TEST_F(Start, AFailingForkIsToldWithItsReason) {
  failCall("fork", {.error = EAGAIN});
  EXPECT_EQ(exceptionOf([] { HypcliExecutor::instance().start(); }),
            "Failed to forkResource temporarily unavailable");
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested));
}

TEST_F(Start, AnInterruptedWaitIsRepeated) {
  failCall("waitpid", {.error = EINTR, .times = 2});
  startExecutor();
  EXPECT_EQ(callCount("waitpid"), 3);
}

TEST_F(Start, AFailingWaitIsTold) {
  failCall("waitpid", {.error = ECHILD});
  EXPECT_EQ(exceptionOf([] { HypcliExecutor::instance().start(); }),
            "Failed collecting executor's exit status");
  EXPECT_TRUE(doubles::waitForRecord(kPolling));
}

TEST_F(Start, ASocketThatCannotBeMadeEndsTheChild) {
  failCall("socket", inTheChild(EMFILE));
  expectChildFailure(
      "Unable to start executor: Error opening control socket for executor: Too many open files\n");
}

TEST_F(Start, ABindThatFailsEndsTheChild) {
  failCall("bind", inTheChild(EACCES));
  expectChildFailure(
      "Unable to start executor: Failed to bind to executor control socket: Permission denied\n");
  EXPECT_FALSE(test::exists(kSocketPath));
}

TEST_F(Start, AListenThatFailsEndsTheChild) {
  failCall("listen", inTheChild(ENOBUFS));
  expectChildFailure(
      "Unable to start executor: Failed to listen on executor control socket: No buffer space "
      "available\n");
}

TEST_F(Start, AProcessThatCannotGoIntoTheBackgroundEnds) {
  failCall("daemon", inTheChild(EAGAIN));
  expectChildFailure("Unable to start executor: Failed to daemonize\n");
}

TEST_F(Start, WhatIsNoExceptionOfOursEndsTheChildToo) {
  doubles::script().onLog = [](const std::string& text) {
    if (text.find("Failed opening log file") == 0) throw 42;
  };
  std::filesystem::remove_all("/var/log");
  expectChildFailure("Unable to start executor\n");
}

TEST_F(Start, AMissingEventLoopThreadShowsInTheLogOnly) {
  failCall("pthread_create", inTheChild(EAGAIN));
  HypcliExecutor::instance().start();
  const auto failure =
      logLine(2, "Unable to start executor: Failed creating Executor Event Loop thread\n");
  EXPECT_TRUE(doubles::waitForRecord(failure));
  const doubles::Record last = logRecords().back();
  EXPECT_EQ(last, failure);
  EXPECT_TRUE(Process(last.process).waitForEnd());
}

TEST_F(Start, APollLoopThatCannotBeSetUpEndsTheExecutor) {
  doubles::script().pollCallbackError = ENOMEM;
  HypcliExecutor::instance().start();
  EXPECT_TRUE(doubles::waitForRecord(logLine(2, "Failed setting up Poll Loop for executor\n")));
  EXPECT_TRUE(Process(logRecords().back().process).waitForEnd());
}

TEST_F(Start, AMissingFolderMakesTheBindFail) {
  std::filesystem::remove_all("/var/run/nimbus");
  expectChildFailure(
      "Unable to start executor: Failed to bind to executor control socket: No such file or "
      "directory\n");
}

TEST_F(Start, AFileInTheWayIsLeftAlone) {
  test::writeFile(kSocketPath, "mine");
  expectBindFailure();
  EXPECT_EQ(test::readFile(kSocketPath), "mine");
}

TEST_F(Start, ADanglingLinkInTheWayIsLeftAlone) {
  std::filesystem::create_symlink("/nowhere", kSocketPath);
  expectBindFailure();
  EXPECT_TRUE(std::filesystem::is_symlink(kSocketPath));
}

TEST_F(Start, ALinkToAStaleSocketIsLeftAlone) {
  bindSocket(SOCK_STREAM).reset();
  std::filesystem::rename(kSocketPath, "/elsewhere");
  std::filesystem::create_symlink("/elsewhere", kSocketPath);
  expectBindFailure();
  EXPECT_TRUE(test::exists("/elsewhere"));
  EXPECT_TRUE(std::filesystem::is_symlink(kSocketPath));
}

TEST_F(Start, AFolderInTheWayIsLeftAlone) {
  std::filesystem::create_directory(kSocketPath);
  expectBindFailure();
  EXPECT_TRUE(std::filesystem::is_directory(kSocketPath));
}

TEST_F(Start, ALivingStrangersSocketIsLeftAlone) {
  const UniqueFd stranger = bindSocket(SOCK_DGRAM);  // a connect to it fails, but is not refused
  expectBindFailure();
  EXPECT_TRUE(std::filesystem::is_socket(kSocketPath));
}

TEST_F(Start, AStrangerWhoListensCountsAsServing) {
  const UniqueFd stranger = bindSocket(SOCK_STREAM);
  ASSERT_EQ(::listen(stranger.get(), 1), 0);
  HypcliExecutor::instance().start();
  EXPECT_THAT(doubles::records(), IsEmpty());
  EXPECT_EQ(callCount("fork"), 0);
}

TEST_F(Start, AStaleSocketIsReplaced) {
  bindSocket(SOCK_STREAM).reset();
  startExecutor();
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling));
  EXPECT_EQ(statusOf("a"), 0);
}

TEST_F(Start, AStaleSocketStaysWhenItCannotBeProbed) {
  bindSocket(SOCK_STREAM).reset();
  failCall("socket", {.error = EMFILE, .skip = 1, .where = Where::kOtherProcesses});
  expectBindFailure();
}

constexpr const char* kLock = "/var/run/nimbus/bootforgeExecutor.lock";

TEST_F(Start, WaitsForARunWhoseSocketIsBoundAndDoesNotListenYet) {
  const UniqueFd lock(::open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  const UniqueFd listener = bindSocket(SOCK_STREAM);
  std::atomic<bool> over = false;
  std::thread other([&] {
    while (callCount("flock") < 2 && !over) std::this_thread::yield();
    ::listen(listener.get(), 1);
    ::flock(lock.get(), LOCK_UN);
  });
  HypcliExecutor::instance().start();
  over = true;
  other.join();
  EXPECT_THAT(logRecords(), IsEmpty());
  EXPECT_EQ(callCount("fork"), 0);
  EXPECT_TRUE(test::exists(kSocketPath));
}

TEST_F(Start, RunsThatStartAtOnceMakeOneExecutor) {
  constexpr int kRuns = 6;
  int gate[2];
  ASSERT_EQ(::pipe2(gate, O_CLOEXEC), 0);
  const UniqueFd closed(gate[0]);
  UniqueFd open(gate[1]);
  for (int run = 0; run < kRuns; ++run) {
    if (::fork() != 0) continue;
    open.reset();
    char byte;
    [[maybe_unused]] const ssize_t count = ::read(closed.get(), &byte, 1);
    try {
      HypcliExecutor::instance().start();
    } catch (...) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  open.reset();
  for (int run = 0; run < kRuns; ++run) {
    int status = -1;
    EXPECT_GT(::waitpid(-1, &status, 0), 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_TRUE(doubles::waitForRecord(kPolling));
  EXPECT_TRUE(doubles::waitForRecord(kStatusNotSent, kRuns - 1)) << "a look for the executor each";
  const std::vector<doubles::Record> all = logRecords();
  EXPECT_EQ(std::count(all.begin(), all.end(), kResetRequested), 1);
  EXPECT_EQ(std::count(all.begin(), all.end(), kPolling), 1);
}

TEST_F(Start, HoldsItsLockUntilTheExecutorListens) {
  int whileStarting = 0;
  doubles::afterCall("waitpid", [&] {
    const UniqueFd lock(::open(kLock, O_RDWR | O_CLOEXEC));
    whileStarting = ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
  });
  startExecutor();
  EXPECT_EQ(whileStarting, EWOULDBLOCK);
  const UniqueFd lock(::open(kLock, O_RDWR | O_CLOEXEC));
  EXPECT_EQ(::flock(lock.get(), LOCK_EX | LOCK_NB), 0) << "the executor has it still";
  struct stat status {};
  ASSERT_EQ(::fstat(lock.get(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, mode_t{0600});
}

TEST_F(Start, ItsLockTakesNoMissingStreamsPlace) {
  int saved[3];
  for (int stream = 0; stream <= 2; ++stream) {
    saved[stream] = ::fcntl(stream, F_DUPFD_CLOEXEC, 10);
    ASSERT_GE(saved[stream], 10);
  }
  for (int stream = 0; stream <= 2; ++stream) ::close(stream);
  bool taken[3] = {};
  doubles::afterCall("waitpid", [&] {
    for (int stream = 0; stream <= 2; ++stream) taken[stream] = ::fcntl(stream, F_GETFD) != -1;
  });
  HypcliExecutor::instance().start();
  for (int stream = 0; stream <= 2; ++stream) {
    ::dup2(saved[stream], stream);
    ::close(saved[stream]);
  }
  EXPECT_THAT(taken, ElementsAre(false, false, false));
  EXPECT_TRUE(doubles::waitForRecord(kPolling));
}

// Otherwise a run that starts at that moment takes the socket for a stale one, between bind(2) and
// listen(2): two executors, one of which nobody can reach to end it.
TEST_F(Start, TheExecutorHoldsTheLockUntilItListensThoughItsStarterIsGone) {
  // It goes on trying to take its log for standard output for as long as we like.
  failCall("dup2", {.error = EINTR, .times = INT_MAX});
  const pid_t starter = ::fork();
  if (starter == 0) {
    doubles::afterCall("fork", [] { ::_exit(0); });
    HypcliExecutor::instance().start();
    ::_exit(1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(starter, &status, 0), starter);
  EXPECT_EQ(status, 0);
  while (callCount("dup2") < 100) std::this_thread::yield();
  const UniqueFd lock(::open(kLock, O_RDWR | O_CLOEXEC));
  EXPECT_EQ(::flock(lock.get(), LOCK_EX | LOCK_NB), -1);
  EXPECT_EQ(errno, EWOULDBLOCK);
  failCall("dup2", {.error = EINTR, .times = 0});
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the executor keeps the lock";
    std::this_thread::yield();
  }
  EXPECT_EQ(statusOf("a"), 0) << "it listened before it gave the lock back";
  EXPECT_TRUE(doubles::waitForRecord(kPolling));
}

TEST_F(Start, WithoutALockTheExecutorIsStartedAllTheSame) {
  std::filesystem::create_directory(kLock);
  startExecutor();
  EXPECT_THAT(logRecords(),
              ElementsAre(logLine(3,
                                  "Unable to lock /var/run/nimbus/bootforgeExecutor.lock: Is a "
                                  "directory\n"),
                          kResetRequested, kPolling));
}

TEST_F(Start, ALinkInThePlaceOfTheLockIsNotFollowed) {
  std::filesystem::create_symlink("/etc/made", kLock);
  startExecutor();
  EXPECT_FALSE(test::exists("/etc/made"));
  EXPECT_EQ(logRecords().front(),
            logLine(3,
                    "Unable to lock /var/run/nimbus/bootforgeExecutor.lock: Too many levels of "
                    "symbolic links\n"));
}

TEST_F(Start, ALockThatTheSystemRefusesIsTold) {
  failCall("flock", {.error = ENOLCK});
  startExecutor();
  EXPECT_EQ(logRecords().front(),
            logLine(3,
                    "Unable to lock /var/run/nimbus/bootforgeExecutor.lock: No locks "
                    "available\n"));
}

TEST_F(Start, AnInterruptedLockIsRepeated) {
  failCall("flock", {.error = EINTR, .times = 3});
  startExecutor();
  EXPECT_EQ(callCount("flock"), 4);
  EXPECT_THAT(logRecords(), ElementsAre(kResetRequested, kPolling));
}

TEST_F(Start, OnlyTheOwnerCanConnectAndTheUmaskIsAsItWas) {
  doubles::script().commands["make"] = [](const auto&, auto&) {
    test::writeFile("/made", "", 0644);
    ::close(::open("/masked", O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
  };
  const mode_t before = ::umask(026);
  startExecutor();
  ::umask(before);
  EXPECT_EQ(statusOf("make"), 0);
  struct stat status {};
  ASSERT_EQ(::stat(kSocketPath, &status), 0);
  EXPECT_EQ(status.st_mode & 0777, mode_t{0700});
  ASSERT_EQ(::stat("/masked", &status), 0);
  EXPECT_EQ(status.st_mode & 0777, mode_t{0640});
}

}  // namespace
}  // namespace bootforge
