// Async-signal-safe only: the child of vfork(2) shares this process's memory until it execs, while
// other threads of ours run on.

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/host_kernel.h"

namespace {

constexpr std::uint32_t kMostDescriptors = 16;

/// Moves the descriptors above the places that they are to take, then into them.
bool placeDescriptors(const int* descriptors, std::uint32_t count) {
  int moved[kMostDescriptors];
  for (std::uint32_t i = 0; i < count; ++i) {
    moved[i] = ::fcntl(descriptors[i], F_DUPFD, static_cast<int>(count));
    if (moved[i] < 0) return false;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    if (::dup2(moved[i], static_cast<int>(i)) < 0) return false;
  }
  return true;
}

/// Closes all descriptors from there on when the program is executed; until then the failure of
/// that can be told through one of them.
void closeFromOnExec(unsigned first) {
#ifdef CLOSE_RANGE_CLOEXEC
  if (::syscall(SYS_close_range, first, ~0U, CLOSE_RANGE_CLOEXEC) == 0) return;
#endif
  const long limit = ::sysconf(_SC_OPEN_MAX);
  for (long fd = first; fd < limit; ++fd) ::fcntl(static_cast<int>(fd), F_SETFD, FD_CLOEXEC);
}

/// The C library's own calls would change the ids of every thread of the process that we share.
bool takeIds(uid_t user, gid_t group) {
  return ::syscall(SYS_setresgid, group, group, group) == 0 &&
         ::syscall(SYS_setresuid, user, user, user) == 0;
}

void defaultSignals() {
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

extern "C" int HvkSyscall_ForkExec(const char* path, char* const arguments[],
                                   char* const environment[], int workingDirectory,
                                   const int descriptors[], const HvkForkExecParameters* parameters,
                                   int* error) {
  *error = 0;
  if (parameters->descriptorCount > kMostDescriptors) {
    *error = -EINVAL;
    return -1;
  }
  // The error of a failing child comes through a pipe that a succeeding one closes: memory would
  // do, but where vfork(2) is stood in for by fork(2), as under a sanitizer, it is not shared.
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    *error = -errno;
    return -1;
  }
  // No signal handler may run in the child, on memory that it shares.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t child = ::vfork();
  if (child == 0) {
    if (::fchdir(workingDirectory) == 0 &&
        placeDescriptors(descriptors, parameters->descriptorCount) &&
        takeIds(parameters->user, parameters->group)) {
      closeFromOnExec(parameters->descriptorCount);
      defaultSignals();
      ::execve(path, arguments, environment);
    }
    const int failure = errno;
    [[maybe_unused]] const ssize_t told = ::write(ends[1], &failure, sizeof failure);
    ::_exit(127);
  }
  const int forkError = errno;
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::close(ends[1]);
  int failure = 0;
  if (child > 0) {
    while (::read(ends[0], &failure, sizeof failure) == -1 && errno == EINTR) {
    }
  }
  ::close(ends[0]);
  if (child < 0) {
    *error = -forkError;
    return -1;
  }
  if (failure != 0) {
    while (::waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
    }
    *error = -failure;
    return -1;
  }
  *parameters->child = child;
  return 0;
}
