#include "util/shell.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <string>

#include "tests/double/faults.h"
#include "tests/support/own_process.h"
#include "tests/support/scratch_root.h"
#include "util/child_process.h"
#include "util/regular_file.h"

namespace bootforge::test {
namespace {

using doubles::failCall;

/// What a script says of its own signals: the number of a blocked or ignored one, or nothing. A
/// signal that is blocked or ignored does not end the process that sends it to itself.
constexpr const char* kListDeafness =
    "for n in 1 2 10 12 13 14 15 34 64; do\n"
    "  sh -c \"kill -$n \\$\\$; exit 0\" 2> /dev/null\n"
    "  [ $? = 0 ] && printf '%s ' $n\n"
    "done; true";

void blockAndIgnore() {
  sigset_t all;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
  for (const int signal : {SIGHUP, SIGPIPE, SIGTERM, SIGINT, SIGTSTP}) ::signal(signal, SIG_IGN);
}

class Shell : public testing::Test {
 protected:
  void SetUp() override { doubles::resetFaults(); }
  void TearDown() override {
    EXPECT_EQ(doubles::callCount("spawn_destroy"), doubles::callCount("spawn_init"));
    EXPECT_EQ(doubles::callCount("spawnattr_destroy"), doubles::callCount("spawnattr_init"));
    doubles::resetFaults();
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a shell was not waited for";
  }
};

TEST_F(Shell, GivesTheStatusOfTheCommandLine) {
  EXPECT_EQ(runShell("true"), 0);
  EXPECT_EQ(runShell("exit 3"), 3 << 8);
  EXPECT_EQ(runShell("kill -9 $$"), SIGKILL);
  EXPECT_EQ(runShell("/bin/missing 2> /dev/null"), 127 << 8);
}

TEST_F(Shell, HasOurStreamsAndOurEnvironment) {
  inChild([] {
    ::setenv("COLOUR", "blue", 1);
    ::close(STDOUT_FILENO);
    ASSERT_EQ(::open("/tmp/out", O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDOUT_FILENO);
    ::dup2(STDOUT_FILENO, STDOUT_FILENO);
    ::fcntl(STDOUT_FILENO, F_SETFD, 0);
    EXPECT_EQ(runShell("echo $COLOUR"), 0);
  });
  EXPECT_EQ(readFile("/tmp/out"), "blue\n");
}

TEST_F(Shell, HasTheDefaultOfEverySignalAndNoneBlocked) {
  inChild([] {
    blockAndIgnore();
    EXPECT_EQ(runShell(std::string("{ ") + kListDeafness + "; } > /tmp/deaf"), 0);
  });
  EXPECT_EQ(readFile("/tmp/deaf"), "");
}

TEST_F(Shell, ThatListShowsWhatIsIgnored) {
  EXPECT_EQ(runShell(std::string("trap '' 10 13; { ") + kListDeafness + "; } > /tmp/deaf"), 0);
  EXPECT_EQ(readFile("/tmp/deaf"), "10 13 ");
}

TEST_F(Shell, HasNoDescriptorsButItsStreams) {
  inChild([] {
    ASSERT_EQ(::dup2(STDERR_FILENO, 50), 50);  // open across an execution, as whoever left it there
    EXPECT_NE(runShell("true 2> /dev/null >&50"), 0);
    EXPECT_EQ(readAll(ShellOutput("{ true >&50; } 2> /dev/null || echo closed").pipe()),
              "closed\n");
  });
}

TEST_F(Shell, IsWaitedForThroughInterruptions) {
  failCall("waitpid", {.error = EINTR, .times = 3});
  EXPECT_EQ(runShell("exit 3"), 3 << 8);
}

TEST_F(Shell, ThatIsMissingIsAnExitWithItsOwnStatus) {
  ASSERT_EQ(::unlink("/bin/sh"), 0);
  EXPECT_EQ(runShell("true"), 127 << 8);
}

TEST_F(Shell, ForWhichThereIsNoProcessHasNoStatus) {
  for (const int error : {EAGAIN, ENOMEM}) {
    failCall("posix_spawn", {.error = error});
    errno = 0;
    EXPECT_EQ(runShell("true"), -1);
    EXPECT_EQ(errno, error);
  }
  failCall("spawn_init", {.error = ENOMEM});
  EXPECT_EQ(runShell("true"), -1);
}

TEST_F(Shell, WhoseEndCannotBeLearntHasNoStatus) {
  inChild([] {
    ::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(runShell("true"), -1);
    EXPECT_EQ(errno, ECHILD);
  });
}

using ShellOutputTest = Shell;

TEST_F(ShellOutputTest, IsWhatTheCommandLineWrites) {
  const ShellOutput output("echo one; echo two");
  EXPECT_EQ(readAll(output.pipe()), "one\ntwo\n");
}

TEST_F(ShellOutputTest, ThatNobodyReadsEndsTheShell) {
  inChild([] {
    blockAndIgnore();
    const ShellOutput output("yes");
    EXPECT_TRUE(output.pipe());
  });
}

TEST_F(ShellOutputTest, IsCloseOnExec) {
  const ShellOutput output("true");
  EXPECT_EQ(::fcntl(output.pipe().get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(ShellOutputTest, IsNoneWithoutAPipeOrAShell) {
  const int before = countOpenDescriptors();
  failCall("pipe", {.error = EMFILE});
  EXPECT_FALSE(ShellOutput("true").pipe());
  failCall("posix_spawn", {.error = EAGAIN});
  EXPECT_FALSE(ShellOutput("true").pipe());
  failCall("spawn_dup2", {.error = ENOMEM});
  EXPECT_FALSE(ShellOutput("true").pipe());
  EXPECT_EQ(countOpenDescriptors(), before);
}

TEST_F(ShellOutputTest, ComesThroughAMissingStandardOutput) {
  inChild([] {
    const UniqueFd saved(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    ::close(STDOUT_FILENO);
    {
      const ShellOutput output("echo here");
      EXPECT_EQ(readAll(output.pipe()), "here\n");
    }
    ::dup2(saved.get(), STDOUT_FILENO);
  });
}

TEST(ResetSignals, GivesEverySignalItsDefaultAndBlocksNone) {
  inChild([] {
    blockAndIgnore();
    // One that the C library keeps for itself, by the kernel's call; the action begins with
    // SIG_IGN.
    constexpr int kReserved = 32;
    std::uint64_t reserved[8] = {1};
    ASSERT_EQ(::syscall(SYS_rt_sigaction, kReserved, reserved, nullptr, 8), 0);
    resetSignals();
    ASSERT_EQ(::syscall(SYS_rt_sigaction, kReserved, nullptr, reserved, 8), 0);
    EXPECT_EQ(reserved[0], 0U);
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (int signal = 1; signal < NSIG; ++signal) {
      struct sigaction action {};
      EXPECT_EQ(sigismember(&mask, signal) == 1, false) << signal;
      if (::sigaction(signal, nullptr, &action) == 0) {
        EXPECT_EQ(action.sa_handler, SIG_DFL) << signal;
      }
    }
  });
}

}  // namespace
}  // namespace bootforge::test
