#include "platform/linux/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace bootforge::test {
namespace {

using host_linux::ProgramEnd;
using host_linux::runProgram;

ProgramEnd runShell(const std::string& script) { return runProgram({"/bin/sh", "-c", script}); }

/// Each test once with process descriptors and once as on a kernel without them; no run may leave a
/// descriptor open.
class Program : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    pidfdBehaviour = {.error = GetParam()};
    descriptors_ = countOpenDescriptors();
  }
  void TearDown() override {
    pidfdBehaviour = {};
    EXPECT_EQ(countOpenDescriptors(), descriptors_);
  }

  /// Ends a process that a script left behind and wrote the id of.
  static void endLeftBehind(const std::string& pidFile) {
    EXPECT_EQ(kill(std::stoi(readFile(pidFile)), SIGKILL), 0);
  }

  int descriptors_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Awaited, Program, testing::Values(0, ENOSYS), [](const auto& awaited) {
  return awaited.param == 0 ? "WithProcessDescriptors" : "ByAskingInIntervals";
});

TEST_P(Program, IsAwaitedInTheWayOfThisRunAndNotForEver) {
  Finished child = runInChild([] {
    alarm(20);
    EXPECT_TRUE(runShell("exit 0").endedWell());
    EXPECT_EQ(pidfdBehaviour.refused, GetParam() == 0 ? 0 : 1);
    EXPECT_TRUE(runProgram({"/bin/true"}, 1000.0).endedWell());
    EXPECT_TRUE(runShell("head -c 300000 /dev/zero >&2").endedWell());
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_P(Program, RunsToItsEnd) {
  ProgramEnd end = runShell("echo done >/tmp/done");
  EXPECT_TRUE(end.endedWell());
  EXPECT_EQ(end.failure, "");
  EXPECT_EQ(end.standardError, "");
  EXPECT_EQ(readFile("/tmp/done"), "done\n");
}

TEST_P(Program, TellsItsExitCodeAndItsSignal) {
  ProgramEnd end = runShell("exit 7");
  EXPECT_TRUE(WIFEXITED(end.status));
  EXPECT_EQ(WEXITSTATUS(end.status), 7);
  EXPECT_FALSE(end.endedWell());
  end = runShell("kill -KILL $$");
  EXPECT_TRUE(WIFSIGNALED(end.status));
  EXPECT_EQ(WTERMSIG(end.status), SIGKILL);
  EXPECT_FALSE(end.endedWell());
}

TEST_P(Program, GetsItsArgumentsAsTheyAre) {
  std::vector<std::string> odd = {"a b", "", "$HOME", "*", "'\"\\", "\xff\n"};
  std::vector<std::string> words = {"/bin/sh", "-c", "printf '%s|' \"$@\" >/tmp/arguments", "sh"};
  words.insert(words.end(), odd.begin(), odd.end());
  EXPECT_TRUE(runProgram(words).endedWell());
  std::string expected;
  for (const std::string& word : odd) expected += word + "|";
  EXPECT_EQ(readFile("/tmp/arguments"), expected);
}

TEST_P(Program, ReadsFromTheNullDeviceAndWritesWhereWeDo) {
  Finished child = runInChild([] {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[0], STDIN_FILENO);  // a standard input that would never end
    EXPECT_TRUE(runShell("read line || echo at the end").endedWell());
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(child.out, "at the end\n");
}

TEST_P(Program, HasTheEnvironmentButNoOtherDescriptorOfOurs) {
  Finished child = runInChild([] {
    setenv("OF_OURS", "value", 1);
    dup2(STDOUT_FILENO, 3);
    dup2(STDOUT_FILENO, 9);
    runShell("echo $OF_OURS; echo three >&3");
    runShell("echo nine >&9");
  });
  EXPECT_EQ(child.out, "value\n");
}

TEST_P(Program, StartsWithDefaultSignalDispositionsAndNoSignalBlocked) {
  Finished child = runInChild([] {
    sigset_t all;
    sigfillset(&all);
    for (int number : {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGUSR1, SIGALRM, SIGRTMIN + 3}) {
      signal(number, SIG_IGN);
      sigprocmask(SIG_BLOCK, &all, nullptr);
      ProgramEnd end = runShell("kill -" + std::to_string(number) + " $$; exit 5");
      EXPECT_TRUE(WIFSIGNALED(end.status)) << number;
      EXPECT_EQ(WTERMSIG(end.status), number);
    }
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_P(Program, HasItsStandardErrorCollected) {
  ProgramEnd end = runShell("echo one >&2; echo two >&2; printf three >&2; exit 1");
  EXPECT_EQ(end.standardError, "one\ntwo\nthree");
  EXPECT_EQ(end.dropped, 0U);
}

TEST_P(Program, IsNeverHeldUpByAFloodOfErrors) {
  ProgramEnd end = runShell("yes flood | head -c 3000000 >&2; exit 1");
  EXPECT_EQ(WEXITSTATUS(end.status), 1);
  EXPECT_EQ(end.standardError.size(), 65536U);
  EXPECT_TRUE(end.standardError.starts_with("flood\nflood\n"));
  EXPECT_EQ(end.standardError.size() + end.dropped, 3'000'000U);
}

TEST_P(Program, HasAllCollectedThatItWroteLast) {
  for (int i = 0; i < 20; ++i) {
    ProgramEnd end = runShell("exec dd if=/dev/zero bs=60000 count=1 >&2 2>/dev/null");
    EXPECT_TRUE(end.endedWell());
    ASSERT_EQ(end.standardError.size(), 60'000U);
  }
}

TEST_P(Program, IsOverWhenItHasEndedWhoeverHoldsItsStandardError) {
  for (std::string text : {"text\n", ""}) {
    ProgramEnd end = runShell("sleep 1000 & echo $! >/tmp/pid; printf '" + text + "' >&2; exit 3");
    EXPECT_EQ(WEXITSTATUS(end.status), 3);
    EXPECT_EQ(end.standardError, text);
    endLeftBehind("/tmp/pid");
  }
}

TEST_P(Program, IsOverWhenItHasEndedAlsoWhenAnotherGoesOnFlooding) {
  ProgramEnd end = runShell("yes >&2 & echo $! >/tmp/pid; head -c 200000 /dev/zero >&2; exit 3");
  EXPECT_EQ(WEXITSTATUS(end.status), 3);
  endLeftBehind("/tmp/pid");
}

/// Writes more than any pipe holds, once it may, and then tells how each write went.
constexpr const char* kLeaveAWriter =
    "(while [ ! -e /tmp/go ]; do sleep 0.01; done;"
    " dd if=/dev/zero bs=65536 count=64 >&2 2>/tmp/report || echo failed >>/tmp/report;"
    " echo ended >>/tmp/report) & exit 3";

TEST_P(Program, LeavesProcessesBehindThatWriteAsMuchAsTheyLike) {
  EXPECT_EQ(WEXITSTATUS(runShell(kLeaveAWriter).status), 3);
  writeFile("/tmp/report", "");
  writeFile("/tmp/go", "");
  EXPECT_TRUE(waitUntil([] { return readFile("/tmp/report").ends_with("ended\n"); }));
  EXPECT_EQ(readFile("/tmp/report").find("failed"), std::string::npos) << readFile("/tmp/report");
  EXPECT_NE(readFile("/tmp/report").find("64+0 records out"), std::string::npos);
}

TEST_P(Program, LeavesProcessesBehindThatMayWriteWhenWeAreGone) {
  writeFile("/tmp/report", "");
  Finished child = runInChild([] { EXPECT_EQ(WEXITSTATUS(runShell(kLeaveAWriter).status), 3); });
  EXPECT_EQ(child.status, 0) << child.out;
  writeFile("/tmp/go", "");
  EXPECT_TRUE(waitUntil([] { return readFile("/tmp/report").ends_with("ended\n"); }));
  EXPECT_EQ(readFile("/tmp/report").find("failed"), std::string::npos) << readFile("/tmp/report");
}

// The root outside the tests' root: /proc is there.
const int outside = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);

/// What a process has open; empty when there is none, or no such process.
std::string openFile(const std::string& process, int descriptor) {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/" + process + "/fd/" + std::to_string(descriptor),
                                       error);
}

/// The process that has this file for its standard input; empty for none.
std::string readerOf(const std::string& file) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string process = entry.path().filename();
    if (openFile(process, STDIN_FILENO) == file) return process;
  }
  return "";
}

/// The set of signals that a process ignores, as a number with a bit for each.
std::uint64_t ignoredBy(const std::string& process) {
  std::ifstream status("/proc/" + process + "/status");
  std::string line;
  while (std::getline(status, line) && !line.starts_with("SigIgn:")) continue;
  return line.empty() ? 0 : std::stoull(line.substr(line.find(':') + 1), nullptr, 16);
}

TEST_P(Program, LeavesAReaderBehindThatIgnoresEverySignal) {
  Finished child = runInChild([] {
    // Whoever has started us may have had some ignored.
    for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
    runShell("sleep 1000 & echo $! >/tmp/pid");
    const std::string writer = std::to_string(std::stoi(readFile("/tmp/pid")));
    ASSERT_TRUE(fchdir(outside) == 0 && chroot(".") == 0);
    const std::string pipe = openFile(writer, STDERR_FILENO);
    ASSERT_TRUE(pipe.starts_with("pipe:")) << pipe;
    // But those that no process can, and two that the C library keeps for itself.
    std::uint64_t all = ~std::uint64_t{0};
    for (const int number : {SIGKILL, SIGSTOP, 32, 33}) all &= ~(std::uint64_t{1} << (number - 1));
    EXPECT_TRUE(waitUntil([&] { return ignoredBy(readerOf(pipe)) == all; }))
        << ignoredBy(readerOf(pipe));
  });
  EXPECT_EQ(child.status, 0) << child.out;
  endLeftBehind("/tmp/pid");
}

// What it reads there last is no more than what was there when the program ended.
TEST_P(Program, IsOverWhenItHasEndedThoughMuchWasReadBeforeAndAnotherKeepsThePipe) {
  Finished child = runInChild([] {
    alarm(20);
    ProgramEnd end = runShell(
        "sleep 1000 & echo $! >/tmp/pid; head -c 200000 /dev/zero >&2; sleep 0.05;"
        "head -c 30000 /dev/zero >&2; exit 3");
    EXPECT_EQ(WEXITSTATUS(end.status), 3);
    EXPECT_EQ(end.standardError.size() + end.dropped, 230'000U);
  });
  EXPECT_EQ(child.status, 0) << child.out;
  endLeftBehind("/tmp/pid");
}

TEST_P(Program, LeavesNoChildOfOursBehind) {
  Finished child = runInChild([] {
    runShell("sleep 1000 & echo $! >/tmp/pid");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
  });
  EXPECT_EQ(child.status, 0) << child.out;
  endLeftBehind("/tmp/pid");
}

TEST_P(Program, LeavesNothingOpenThatWeHaveButItsOwnPipe) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  runShell("sleep 1000 & echo $! >/tmp/pid");
  close(ends[1]);
  char byte;
  EXPECT_EQ(read(ends[0], &byte, 1), 0) << "somebody still has the other end";
  close(ends[0]);
  endLeftBehind("/tmp/pid");
}

TEST_P(Program, WithinItsTimeRunsAsWithoutALimit) {
  ProgramEnd end = runProgram({"/bin/sh", "-c", "echo text >&2; exit 3"}, 1000.0);
  EXPECT_FALSE(end.timedOut);
  EXPECT_EQ(WEXITSTATUS(end.status), 3);
  EXPECT_EQ(end.standardError, "text\n");
  EXPECT_TRUE(runProgram({"/bin/true"}, 1e300).endedWell());
}

TEST_P(Program, OverItsTimeIsEndedWithItsGroup) {
  ASSERT_EQ(mkfifo("/tmp/both", 0600), 0);
  // Nobody ever writes there; whoever is still alive holds it open.
  int both = open("/tmp/both", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  auto start = std::chrono::steady_clock::now();
  ProgramEnd end =
      runProgram({"/bin/sh", "-c", "exec 5>/tmp/both; sleep 1000 & echo text >&2; wait"}, 0.2);
  auto took = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(end.timedOut);
  EXPECT_FALSE(end.endedWell());
  EXPECT_EQ(end.standardError, "text\n");
  EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGTERM) << end.status;
  EXPECT_GE(took, std::chrono::milliseconds(200));
  EXPECT_LT(took, std::chrono::seconds(5));
  char byte;
  EXPECT_TRUE(waitUntil([&] { return read(both, &byte, 1) == 0; })) << "somebody is still alive";
  close(both);
}

TEST_P(Program, OverItsTimeThatWithstandsIsKilledTwoSecondsLater) {
  auto start = std::chrono::steady_clock::now();
  ProgramEnd end = runProgram({"/bin/sh", "-c", "trap '' TERM; while :; do sleep 0.1; done"}, 0.1);
  auto took = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(end.timedOut);
  EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGKILL) << end.status;
  EXPECT_GE(took, std::chrono::milliseconds(2100));
  EXPECT_LT(took, std::chrono::seconds(10));
}

TEST_P(Program, OverItsTimeIsOverWhenAlsoThoseOfItsGroupHaveEndedThatWithstand) {
  ASSERT_EQ(mkfifo("/tmp/both", 0600), 0);
  int both = open("/tmp/both", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ProgramEnd end;
  // On a busy machine they may not be ready in a short time.
  for (double limit = 0.3; limit < 30 && end.standardError.empty(); limit *= 4) {
    end = runProgram({"/bin/sh", "-c",
                      "exec 5>/tmp/both;"
                      "(trap '' TERM; echo ready >&2; while :; do sleep 0.1; done) & wait"},
                     limit);
  }
  EXPECT_TRUE(end.timedOut);
  EXPECT_TRUE(WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGTERM) << end.status;
  EXPECT_EQ(end.standardError, "ready\n");
  char byte;
  EXPECT_TRUE(waitUntil([&] { return read(both, &byte, 1) == 0; })) << "somebody is still alive";
  close(both);
}

TEST_P(Program, HasAGroupOfItsOwnOnlyWithALimit) {
  Finished child = runInChild([] {
    setpgid(0, 0);
    // A signal to the group reaches what belongs to it, and us, who ignore it.
    signal(SIGUSR1, SIG_IGN);
    ProgramEnd without = runShell("kill -USR1 0; exit 5");
    EXPECT_TRUE(WIFSIGNALED(without.status));
    signal(SIGUSR1, SIG_DFL);
    ProgramEnd with = runProgram({"/bin/sh", "-c", "kill -USR1 0; exit 5"}, 100.0);
    EXPECT_TRUE(WIFSIGNALED(with.status));
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_P(Program, IsNotOverBeforeItHasEndedThoughItClosedItsStandardError) {
  ProgramEnd end = runShell("exec 2>&-; sleep 0.1; echo late >/tmp/late; exit 4");
  EXPECT_EQ(WEXITSTATUS(end.status), 4);
  EXPECT_EQ(readFile("/tmp/late"), "late\n");
}

TEST_P(Program, IsAwaitedAsleepAlsoWhenItClosedItsStandardError) {
  pollCalls = 0;
  EXPECT_TRUE(runShell("exec 2>&-; sleep 0.2").endedWell());
  EXPECT_LT(pollCalls, 50);
}

TEST(ProgramWithProcessDescriptors, WakesUsOnceWhenItEnds) {
  constexpr int kRuns = 20;
  pollCalls = 0;
  for (int run = 0; run < kRuns; ++run) EXPECT_TRUE(runProgram({"/bin/true"}).endedWell());
  // Once for the end, and a look, without waiting, for others that have the pipe open.
  EXPECT_EQ(pollCalls, 2 * kRuns);
}

TEST_P(Program, IsAwaitedThroughInterruptions) {
  Finished child = runInChild([] {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    sigaction(SIGPROF, &action, nullptr);
    sigaction(SIGALRM, &action, nullptr);
    itimerval often{{0, 1000}, {0, 1000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    ProgramEnd end = runShell("for i in 1 2 3 4 5; do sleep 0.02; echo $i >&2; done; exit 6");
    EXPECT_EQ(end.failure, "");
    EXPECT_EQ(WEXITSTATUS(end.status), 6);
    EXPECT_EQ(end.standardError, "1\n2\n3\n4\n5\n");
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_P(Program, ThatCannotBeStartedSaysWhy) {
  ASSERT_EQ(mkdir("/tmp/directory", 0755), 0);
  writeFile("/tmp/locked", "#!/bin/sh\n", 0644);
  writeFile("/tmp/odd", "no program", 0755);
  writeFile("/tmp/lost", "#!/nowhere\n", 0755);
  EXPECT_EQ(runProgram({"/nowhere"}).failure, "cannot be started: No such file or directory");
  EXPECT_EQ(runProgram({"/tmp/lost"}).failure, "cannot be started: No such file or directory");
  EXPECT_EQ(runProgram({"/tmp/directory"}).failure, "cannot be started: Permission denied");
  EXPECT_EQ(runProgram({"/tmp/locked"}).failure, "cannot be started: Permission denied");
  EXPECT_EQ(runProgram({"/tmp/odd"}).failure, "cannot be started: Exec format error");
  EXPECT_EQ(runProgram({"/bin/true", std::string(4'000'000, 'x')}).failure,
            "cannot be started: Argument list too long");
  EXPECT_FALSE(runProgram({"/nowhere"}).endedWell());
}

TEST_P(Program, CannotBeStartedWithoutTheNullDeviceOrWithoutDescriptors) {
  // The device itself may be a mount, which cannot be moved.
  ASSERT_EQ(rename("/dev", "/tmp/dev"), 0);
  EXPECT_EQ(runProgram({"/bin/true"}).failure,
            "cannot be started: /dev/null: No such file or directory");
  ASSERT_EQ(rename("/tmp/dev", "/dev"), 0);
  Finished child = runInChild([] {
    int last = -1;
    for (int fd = 0; (fd = dup(STDIN_FILENO)) != -1;) last = fd;
    EXPECT_EQ(runProgram({"/bin/true"}).failure,
              "cannot be started: /dev/null: Too many open files");
    close(last);
    EXPECT_EQ(runProgram({"/bin/true"}).failure, "cannot be started: Too many open files");
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_P(Program, ThatSomebodyElseCollectedHasNotEndedWell) {
  Finished child = runInChild([] {
    signal(SIGCHLD, SIG_IGN);  // the kernel collects
    ProgramEnd end = runProgram({"/bin/true"});
    EXPECT_EQ(end.failure, "cannot tell how it ended: No child processes");
    EXPECT_FALSE(end.endedWell());
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

}  // namespace
}  // namespace bootforge::test
