#include "tests/unit/platform/wrapped_calls.h"

#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <string_view>

namespace bootforge::test {

WriteBehaviour writeBehaviour;
int epollCreations = -1;
int ioctlError = 0;
std::atomic<int> pollCalls = 0;
std::function<void(int timeout)> beforePoll;
PidfdBehaviour pidfdBehaviour;
RemovalBehaviour removals;
int closeRangeError = 0;
int spawnObjects = 0;

namespace {
int* unblocked = nullptr;  // in shared memory
}

void watchFchdir() {
  void* shared =
      mmap(nullptr, sizeof *unblocked, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) abort();
  unblocked = static_cast<int*>(shared);
  *unblocked = -1;
}

int unblockedAtFchdir() { return *unblocked; }

}  // namespace bootforge::test

using bootforge::test::beforePoll;
using bootforge::test::closeRangeError;
using bootforge::test::epollCreations;
using bootforge::test::ioctlError;
using bootforge::test::pidfdBehaviour;
using bootforge::test::pollCalls;
using bootforge::test::removals;
using bootforge::test::spawnObjects;
using bootforge::test::unblocked;
using bootforge::test::writeBehaviour;

extern "C" {

ssize_t __real_write(int fd, const void* data, size_t size);
int __real_epoll_create1(int flags);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
long __real_syscall(long number, ...);
int __real_fchdir(int fd);
int __real_posix_spawnattr_init(posix_spawnattr_t* attributes);
int __real_posix_spawnattr_destroy(posix_spawnattr_t* attributes);
int __real_posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions);
int __real_posix_spawn_file_actions_destroy(posix_spawn_file_actions_t* actions);
int __real_unlinkat(int directory, const char* path, int flags);

ssize_t __wrap_write(int fd, const void* data, size_t size);
int __wrap_epoll_create1(int flags);
int __wrap_ioctl(int fd, unsigned long request, ...);
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout);
long __wrap_syscall(long number, ...);
int __wrap_fchdir(int fd);
int __wrap_posix_spawnattr_init(posix_spawnattr_t* attributes);
int __wrap_posix_spawnattr_destroy(posix_spawnattr_t* attributes);
int __wrap_posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions);
int __wrap_posix_spawn_file_actions_destroy(posix_spawn_file_actions_t* actions);
int __wrap_unlinkat(int directory, const char* path, int flags);

ssize_t __wrap_write(int fd, const void* data, size_t size) {
  ++writeBehaviour.calls;
  if (writeBehaviour.failures > 0) {
    --writeBehaviour.failures;
    errno = writeBehaviour.error;
    return -1;
  }
  if (writeBehaviour.most > 0) size = std::min(size, writeBehaviour.most);
  return __real_write(fd, data, size);
}

int __wrap_epoll_create1(int flags) {
  if (epollCreations == 0) {
    errno = EMFILE;
    return -1;
  }
  if (epollCreations > 0) --epollCreations;
  return __real_epoll_create1(flags);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (ioctlError == 0) return __real_ioctl(fd, request, argument);
  errno = ioctlError;
  return -1;
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  ++pollCalls;
  if (beforePoll) beforePoll(timeout);
  return __real_poll(descriptors, count, timeout);
}

// The C library's pidfd_open is no function for C++ in its older releases, so it is called by
// number.
long __wrap_syscall(long number, ...) {
  if (number == SYS_pidfd_open && pidfdBehaviour.error != 0) {
    ++pidfdBehaviour.refused;
    errno = pidfdBehaviour.error;
    return -1;
  }
  if (number == SYS_close_range && closeRangeError != 0) {
    errno = closeRangeError;
    return -1;
  }
  va_list arguments;
  va_start(arguments, number);
  // No call of the code under test has more words, and behind these is the caller's stack.
  long values[5];
  for (long& value : values) value = va_arg(arguments, long);
  va_end(arguments);
  return __real_syscall(number, values[0], values[1], values[2], values[3], values[4]);
}

int __wrap_fchdir(int fd) {
  if (unblocked) {
    sigset_t mask;
    sigset_t blockable;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    sigfillset(&blockable);
    *unblocked = 0;
    for (int signal = 1; signal < NSIG; ++signal) {
      if (signal == SIGKILL || signal == SIGSTOP || sigismember(&blockable, signal) != 1) continue;
      *unblocked += sigismember(&mask, signal) != 1;
    }
  }
  return __real_fchdir(fd);
}

int __wrap_posix_spawnattr_init(posix_spawnattr_t* attributes) {
  ++spawnObjects;
  return __real_posix_spawnattr_init(attributes);
}

int __wrap_posix_spawnattr_destroy(posix_spawnattr_t* attributes) {
  --spawnObjects;
  return __real_posix_spawnattr_destroy(attributes);
}

int __wrap_posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions) {
  ++spawnObjects;
  return __real_posix_spawn_file_actions_init(actions);
}

int __wrap_posix_spawn_file_actions_destroy(posix_spawn_file_actions_t* actions) {
  --spawnObjects;
  return __real_posix_spawn_file_actions_destroy(actions);
}

int __wrap_unlinkat(int directory, const char* path, int flags) {
  const std::size_t slash = removals.path.rfind('/');
  struct stat given {};
  struct stat folder {};
  if (!removals.path.empty() && fstat(directory, &given) == 0 &&
      stat(removals.path.substr(0, slash).c_str(), &folder) == 0 && given.st_ino == folder.st_ino &&
      given.st_dev == folder.st_dev &&
      std::string_view(path).starts_with(removals.path.substr(slash + 1))) {
    errno = removals.error;
    return -1;
  }
  return __real_unlinkat(directory, path, flags);
}

}  // extern "C"
