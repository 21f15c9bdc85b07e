// Async-signal-safe only: the child of vfork(2) shares this process's memory until it execs, while
// other threads of ours run on.

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

#include "platform/host_kernel.h"
#include "platform/linux/close_from.h"
#include "platform/linux/default_signals.h"

namespace {

constexpr std::uint32_t kMostDescriptors = 16;

/// Puts the descriptors into their places, and after them, at the number `count`, the pipe that
/// tells of a failure, which the execution of the program closes. Closes all others.
bool placeDescriptors(const int* descriptors, std::uint32_t count, int* report) {
  const int after = static_cast<int>(count);
  int moved[kMostDescriptors];
  for (int i = 0; i < after; ++i) {
    moved[i] = ::fcntl(descriptors[i], F_DUPFD, after + 1);
    if (moved[i] < 0) return false;
  }
  if (*report != after) {
    if (::dup3(*report, after, O_CLOEXEC) < 0) return false;
    *report = after;
  }
  for (int i = 0; i < after; ++i) {
    if (::dup2(moved[i], i) < 0) return false;
  }
  host_linux::closeFrom(after + 1);
  return true;
}

/// The C library's own calls would change the ids of every thread of the process that we share.
bool takeIds(uid_t user, gid_t group) {
  return ::syscall(SYS_setresgid, group, group, group) == 0 &&
         ::syscall(SYS_setresuid, user, user, user) == 0;
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
    int report = ends[1];
    if (::fchdir(workingDirectory) == 0 &&
        placeDescriptors(descriptors, parameters->descriptorCount, &report) &&
        takeIds(parameters->user, parameters->group)) {
      host_linux::defaultSignals();
      ::execve(path, arguments, environment);
    }
    const int failure = errno;
    [[maybe_unused]] const ssize_t told = ::write(report, &failure, sizeof failure);
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
