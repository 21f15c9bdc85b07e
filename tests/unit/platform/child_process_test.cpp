// What every child is given, whichever way it is started and whatever we inherited.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/host_kernel.h"
#include "platform/linux/program.h"
#include "platform/spawn.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace bootforge::test {
namespace {

struct Way {
  const char* name;
  /// Runs a shell script to its end; its status as waitpid(2) gives it, -1 when it did not start.
  int (*run)(const std::string& script);
};

char* const kEnvironment[] = {nullptr};

int awaited(pid_t child) {
  int status = -1;
  while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  return status;
}

int runByForkExec(const std::string& script) {
  char* const words[] = {const_cast<char*>("/bin/sh"), const_cast<char*>("-c"),
                         const_cast<char*>(script.c_str()), nullptr};
  int root = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  const int descriptors[] = {null, null, STDERR_FILENO};
  pid_t child = -1;
  const HvkForkExecParameters parameters{3, getuid(), getgid(), 0, &child};
  int error = 0;
  int result =
      HvkSyscall_ForkExec(words[0], words, kEnvironment, root, descriptors, &parameters, &error);
  close(root);
  close(null);
  return result == 0 ? awaited(child) : -1;
}

int runBySpawn(const std::string& script) {
  char* const words[] = {const_cast<char*>("/bin/sh"), const_cast<char*>("-c"),
                         const_cast<char*>(script.c_str()), nullptr};
  HvkuserSpawnFileActions* actions = nullptr;
  if (HvkuserCompat_SpawnFileActionsInit(&actions, 3) != 0) return -1;
  for (int fd = 0; fd < 3; ++fd) HvkuserCompat_SpawnFileActionsAddDup2(actions, fd, fd);
  pid_t child = -1;
  int error = HvkuserCompat_Spawn(&child, words[0], actions, nullptr, words, kEnvironment);
  HvkuserCompat_SpawnFileActionsDestroy(actions);
  return error == 0 ? awaited(child) : -1;
}

int runAsProgram(const std::string& script) {
  return host_linux::runProgram({"/bin/sh", "-c", script}).status;
}

class ChildProcess : public testing::TestWithParam<Way> {
 protected:
  static int run(const std::string& script) { return GetParam().run(script); }
};

INSTANTIATE_TEST_SUITE_P(Started, ChildProcess,
                         testing::Values(Way{"ByForkExec", runByForkExec},
                                         Way{"BySpawn", runBySpawn},
                                         Way{"AsProgram", runAsProgram}),
                         [](const auto& way) { return std::string(way.param.name); });

/// Also those that the C library keeps for itself, which refuses to change them.
void ignoreWithoutTheLibrary(int signal) {
  std::uint64_t action[8] = {reinterpret_cast<std::uintptr_t>(SIG_IGN)};
  ASSERT_EQ(syscall(SYS_rt_sigaction, signal, action, nullptr, 8), 0) << signal;
}

TEST_P(ChildProcess, HasTheDefaultDispositionOfEverySignal) {
  Finished child = runInChild([] {
    sigset_t all;
    sigfillset(&all);
    for (int signal = 1; signal <= 64; ++signal) {
      // They do not end a process that has the default, cannot be ignored, or are the shell's own.
      if (signal == SIGKILL || signal == SIGQUIT || signal == SIGSTOP || signal == SIGCHLD ||
          signal == SIGCONT || signal == SIGURG || signal == SIGWINCH || signal == SIGTSTP ||
          signal == SIGTTIN || signal == SIGTTOU) {
        continue;
      }
      ignoreWithoutTheLibrary(signal);
      sigprocmask(SIG_BLOCK, &all, nullptr);
      int status = run("kill -" + std::to_string(signal) + " $$; exit 5");
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal)
          << "signal " << signal << ", status " << status;
    }
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST_P(ChildProcess, HasNoDescriptorOfOursAlsoWhereTheKernelCannotCloseThemAtOnce) {
  for (bool hasProc : {true, false}) {
    if (hasProc) {
      ASSERT_EQ(mkdir("/proc", 0555), 0);
      if (mount("proc", "/proc", "proc", 0, nullptr) != 0) continue;
    }
    Finished child = runInChild([] {
      for (int fd : {3, 4, 9, 1000}) ASSERT_EQ(dup2(STDOUT_FILENO, fd), fd);
      closeRangeError = ENOSYS;
      EXPECT_EQ(run("for fd in 3 4 5 9; do (echo $fd >&$fd); done 2>/dev/null; exit 7"), 7 << 8);
    });
    EXPECT_EQ(child.status, 0) << child.out;
    EXPECT_EQ(child.out, "") << "a child wrote to a descriptor of ours";
    if (hasProc) {
      EXPECT_EQ(umount("/proc"), 0);
    }
  }
}

TEST_P(ChildProcess, GivesBackWhatItsStartTook) {
  spawnObjects = 0;
  EXPECT_EQ(run("exit 7"), 7 << 8);
  EXPECT_EQ(spawnObjects, 0);
}

TEST(ForkExec, RunsNoSignalHandlerInTheChildThatSharesOurMemory) {
  Finished child = runInChild([] {
    sigset_t before;
    sigset_t after;
    sigprocmask(SIG_SETMASK, nullptr, &before);
    watchFchdir();
    EXPECT_EQ(runByForkExec("exit 7"), 7 << 8);
    EXPECT_EQ(unblockedAtFchdir(), 0);
    sigprocmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < NSIG; ++signal) {
      EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
    }
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST(ForkExec, TellsOfAProgramThatIsNoneWhateverNumbersItsDescriptorsHave) {
  Finished child = runInChild([] {
    // The pipe that tells of the failure is one of the first numbers, which the child is to get.
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    char* const words[] = {const_cast<char*>("/nowhere"), nullptr};
    int root = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(fcntl(root, F_DUPFD_CLOEXEC, 20), 20);
    close(root);
    const int descriptors[] = {STDERR_FILENO, STDERR_FILENO, STDERR_FILENO};
    pid_t started = -1;
    const HvkForkExecParameters parameters{3, getuid(), getgid(), 0, &started};
    int error = 0;
    EXPECT_NE(
        HvkSyscall_ForkExec(words[0], words, kEnvironment, 20, descriptors, &parameters, &error),
        0);
    EXPECT_EQ(error, -ENOENT);
    EXPECT_EQ(started, -1);
  });
  EXPECT_EQ(child.status, 0) << child.err;
}

}  // namespace
}  // namespace bootforge::test
