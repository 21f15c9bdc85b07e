#include "tests/double/faults.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

namespace bootforge::doubles {
namespace {

enum Call : std::size_t {
  kSocket,
  kConnect,
  kBind,
  kListen,
  kAccept,
  kRecv,
  kSend,
  kFork,
  kWaitpid,
  kDaemon,
  kRename,
  kChmod,
  kStat,
  kMkstemp,
  kFsync,
  kRead,
  kClose,
  kCondInit,
  kThreadCreate,
  kDup2,
  kOpen,
  kKill,
  kChdir,
  kSetsid,
  kCalloc,
  kSnprintf,
  kSignal,
  kPoll,
  kSpawnActionsInit,
  kSpawnActionsAddDup2,
  kSpawnActionsDestroy,
  kSpawnAttributesInit,
  kSpawnAttributesDestroy,
  kSpawn,
  kPipe,
  kFlock,
  kGetsockopt,
  kCalls
};

constexpr int kMostLockRounds = 10'000;  // of a millisecond

constexpr std::string_view kNames[] = {"socket",         "connect",        "bind",
                                       "listen",         "accept",         "recv",
                                       "send",           "fork",           "waitpid",
                                       "daemon",         "rename",         "chmod",
                                       "stat",           "mkstemp",        "fsync",
                                       "read",           "close",          "pthread_cond_init",
                                       "pthread_create", "dup2",           "open",
                                       "kill",           "chdir",          "setsid",
                                       "calloc",         "snprintf",       "signal",
                                       "poll",           "spawn_init",     "spawn_dup2",
                                       "spawn_destroy",  "spawnattr_init", "spawnattr_destroy",
                                       "posix_spawn",    "pipe",           "flock",
                                       "getsockopt"};
static_assert(std::size(kNames) == kCalls);

/// One call's plan and counts.
struct Plan {
  std::atomic<int> error;
  std::atomic<int> skip;
  std::atomic<int> times;
  std::atomic<Where> where;
  std::atomic<pid_t> owner;
  std::atomic<int> ownCalls;
  std::atomic<int> otherCalls;
};

// Constant-initialised, since the calls are made before any constructor of ours has run. Calls made
// before the mapping is there go through and are not counted.
constinit std::atomic<Plan*> plans = nullptr;
constinit std::atomic<bool> actionArmed[kCalls] = {};

Plan* mapPlans() {
  void* memory = ::mmap(nullptr, sizeof(Plan) * kCalls, PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    std::perror("faults: mmap");
    std::abort();
  }
  // Zero pages are what every atomic here starts from.
  Plan* made = static_cast<Plan*>(memory);
  for (std::size_t call = 0; call < kCalls; ++call) {
    (new (made + call) Plan{})->owner = ::getpid();
  }
  plans = made;
  return made;
}

[[maybe_unused]] Plan* const mappedEarly = mapPlans();

struct Action {
  std::function<void()> run;
  pid_t process = 0;
};

Action& actionOf(Call call) {
  static Action actions[kCalls];
  return actions[call];
}

Call find(std::string_view name) {
  for (std::size_t call = 0; call < kCalls; ++call) {
    if (kNames[call] == name) return static_cast<Call>(call);
  }
  std::fprintf(stderr, "faults: no call named %.*s\n", static_cast<int>(name.size()), name.data());
  std::abort();
}

/// Takes one from a counter that is above 0.
bool takeOne(std::atomic<int>& counter) {
  int seen = counter.load();
  while (seen > 0) {
    if (counter.compare_exchange_weak(seen, seen - 1)) return true;
  }
  return false;
}

std::atomic<bool> pollsHaveNoLimit = false;
std::atomic<int> endsHidden = 0;
std::atomic<long> fileSystem = 0;
std::atomic<int> receiveLimit = 0;

/// The error with which this call is to fail, or 0.
int errorFor(Call call) {
  Plan* all = plans.load();
  if (all == nullptr) return 0;
  Plan& plan = all[call];
  const bool own = ::getpid() == plan.owner.load();
  ++(own ? plan.ownCalls : plan.otherCalls);
  const Where where = plan.where.load();
  if (where == (own ? Where::kOtherProcesses : Where::kThisProcess)) return 0;
  if (takeOne(plan.skip)) return 0;
  return takeOne(plan.times) ? plan.error.load() : 0;
}

void act(Call call) {
  if (!actionArmed[call].load() || actionOf(call).process != ::getpid()) return;
  if (!actionArmed[call].exchange(false)) return;
  const int savedError = errno;
  std::exchange(actionOf(call).run, nullptr)();
  errno = savedError;
}

/// A call that reports its errors through errno.
template <typename Result, typename Real>
Result perform(Call call, Result failed, Real real) {
  if (const int error = errorFor(call); error != 0) {
    errno = error;
    return failed;
  }
  const Result result = real();
  if (result != failed) act(call);
  return result;
}

int formatUnlessFailing(char* buffer, std::size_t size, const char* format, va_list arguments) {
  const int error = errorFor(kSnprintf);
  if (error == 0) return std::vsnprintf(buffer, size, format, arguments);
  errno = error;
  return -1;
}

}  // namespace

void failCall(std::string_view call, Fault fault) {
  Plan& plan = plans.load()[find(call)];
  plan.times = 0;
  plan.error = fault.error;
  plan.skip = fault.skip;
  plan.where = fault.where;
  plan.owner = ::getpid();
  plan.times = fault.times;
}

void afterCall(std::string_view call, std::function<void()> action) {
  const Call found = find(call);
  actionOf(found) = {std::move(action), ::getpid()};
  actionArmed[found] = true;
}

int callCount(std::string_view call, Where where) {
  const Plan& plan = plans.load()[find(call)];
  int count = 0;
  if (where != Where::kOtherProcesses) count += plan.ownCalls;
  if (where != Where::kThisProcess) count += plan.otherCalls;
  return count;
}

void pollWithoutLimit() { pollsHaveNoLimit = true; }
void hideEnds(int looks) { endsHidden = looks; }
void reportFileSystem(long type) { fileSystem = type; }
void receiveWithin(int milliseconds) { receiveLimit = milliseconds; }

void resetFaults() {
  pollsHaveNoLimit = false;
  endsHidden = 0;
  fileSystem = 0;
  receiveLimit = 0;
  for (std::size_t call = 0; call < kCalls; ++call) {
    actionArmed[call] = false;
    Plan& plan = plans.load()[call];
    plan.times = 0;
    plan.skip = 0;
    plan.where = Where::kEverywhere;
    plan.owner = ::getpid();
    plan.ownCalls = 0;
    plan.otherCalls = 0;
  }
}

}  // namespace bootforge::doubles

using namespace bootforge::doubles;

// The names are the linker's: with --wrap=X, calls of X come here and __real_X is the true one.
extern "C" {

int __real_socket(int, int, int);
int __wrap_socket(int domain, int type, int protocol) {
  return perform(kSocket, -1, [&] { return __real_socket(domain, type, protocol); });
}

int __real_connect(int, const sockaddr*, socklen_t);
int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
  return perform(kConnect, -1, [&] { return __real_connect(fd, address, length); });
}

int __real_bind(int, const sockaddr*, socklen_t);
int __wrap_bind(int fd, const sockaddr* address, socklen_t length) {
  return perform(kBind, -1, [&] { return __real_bind(fd, address, length); });
}

int __real_listen(int, int);
int __wrap_listen(int fd, int backlog) {
  return perform(kListen, -1, [&] { return __real_listen(fd, backlog); });
}

int __real_accept(int, sockaddr*, socklen_t*);
int __wrap_accept(int fd, sockaddr* address, socklen_t* length) {
  return perform(kAccept, -1, [&] { return __real_accept(fd, address, length); });
}

int __real_accept4(int, sockaddr*, socklen_t*, int);
int __wrap_accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
  return perform(kAccept, -1, [&] { return __real_accept4(fd, address, length, flags); });
}

ssize_t __real_recv(int, void*, std::size_t, int);
ssize_t __wrap_recv(int fd, void* buffer, std::size_t size, int flags) {
  return perform(kRecv, ssize_t{-1}, [&] { return __real_recv(fd, buffer, size, flags); });
}

ssize_t __real_send(int, const void*, std::size_t, int);
ssize_t __wrap_send(int fd, const void* buffer, std::size_t size, int flags) {
  return perform(kSend, ssize_t{-1}, [&] { return __real_send(fd, buffer, size, flags); });
}

pid_t __real_fork();
pid_t __wrap_fork() {
  return perform(kFork, pid_t{-1}, [] { return __real_fork(); });
}

pid_t __real_waitpid(pid_t, int*, int);
pid_t __wrap_waitpid(pid_t process, int* status, int options) {
  if ((options & WNOHANG) != 0 && takeOne(endsHidden)) return 0;
  return perform(kWaitpid, pid_t{-1}, [&] { return __real_waitpid(process, status, options); });
}

int __real_daemon(int, int);
int __wrap_daemon(int noChdir, int noClose) {
  return perform(kDaemon, -1, [&] { return __real_daemon(noChdir, noClose); });
}

int __real_rename(const char*, const char*);
int __wrap_rename(const char* from, const char* to) {
  return perform(kRename, -1, [&] { return __real_rename(from, to); });
}

int __real_chmod(const char*, mode_t);
int __wrap_chmod(const char* path, mode_t mode) {
  return perform(kChmod, -1, [&] { return __real_chmod(path, mode); });
}

int __real_fchmod(int, mode_t);
int __wrap_fchmod(int fd, mode_t mode) {
  return perform(kChmod, -1, [&] { return __real_fchmod(fd, mode); });
}

int __real_stat(const char*, struct stat*);
int __wrap_stat(const char* path, struct stat* status) {
  return perform(kStat, -1, [&] { return __real_stat(path, status); });
}

int __real_mkstemp(char*);
int __wrap_mkstemp(char* pattern) {
  return perform(kMkstemp, -1, [&] { return __real_mkstemp(pattern); });
}

int __real_mkostemp(char*, int);
int __wrap_mkostemp(char* pattern, int flags) {
  return perform(kMkstemp, -1, [&] { return __real_mkostemp(pattern, flags); });
}

int __real_fsync(int);
int __wrap_fsync(int fd) {
  return perform(kFsync, -1, [&] { return __real_fsync(fd); });
}

ssize_t __real_read(int, void*, std::size_t);
ssize_t __wrap_read(int fd, void* buffer, std::size_t size) {
  return perform(kRead, ssize_t{-1}, [&] { return __real_read(fd, buffer, size); });
}

int __real_close(int);
int __wrap_close(int fd) {
  const int error = errorFor(kClose);
  const int result = __real_close(fd);
  if (error == 0) {
    if (result == 0) act(kClose);
    return result;
  }
  errno = error;
  return -1;
}

int __real_pthread_cond_init(pthread_cond_t*, const pthread_condattr_t*);
int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
  if (const int error = errorFor(kCondInit); error != 0) return error;
  return __real_pthread_cond_init(condition, attributes);
}

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
  if (const int error = errorFor(kThreadCreate); error != 0) return error;
  return __real_pthread_create(thread, attributes, body, argument);
}

int __real_dup2(int, int);
int __wrap_dup2(int from, int to) {
  return perform(kDup2, -1, [&] { return __real_dup2(from, to); });
}

int __real_open(const char*, int, ...);
int __wrap_open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & (O_CREAT | __O_TMPFILE)) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  return perform(kOpen, -1, [&] { return __real_open(path, flags, mode); });
}

int __real_kill(pid_t, int);
int __wrap_kill(pid_t process, int signal) {
  return perform(kKill, -1, [&] { return __real_kill(process, signal); });
}

int __real_chdir(const char*);
int __wrap_chdir(const char* path) {
  return perform(kChdir, -1, [&] { return __real_chdir(path); });
}

pid_t __real_setsid();
pid_t __wrap_setsid() {
  return perform(kSetsid, pid_t{-1}, [] { return __real_setsid(); });
}

void* __real_calloc(std::size_t, std::size_t);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (const int error = errorFor(kCalloc); error != 0) {
    errno = error;
    return nullptr;
  }
  return __real_calloc(count, size);
}

int __wrap_snprintf(char* buffer, std::size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = formatUnlessFailing(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}

// What snprintf becomes with _FORTIFY_SOURCE.
int __wrap___snprintf_chk(char* buffer, std::size_t size, int, std::size_t, const char* format,
                          ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = formatUnlessFailing(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}

sighandler_t __real_signal(int, sighandler_t);
sighandler_t __wrap_signal(int number, sighandler_t handler) {
  return perform(kSignal, SIG_ERR, [&] { return __real_signal(number, handler); });
}

int __real_poll(pollfd*, nfds_t, int);
int __wrap_poll(pollfd* watched, nfds_t count, int milliseconds) {
  if (pollsHaveNoLimit) milliseconds = -1;
  return perform(kPoll, -1, [&] { return __real_poll(watched, count, milliseconds); });
}

int __real_posix_spawn_file_actions_init(posix_spawn_file_actions_t*);
int __wrap_posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions) {
  if (const int error = errorFor(kSpawnActionsInit); error != 0) return error;
  return __real_posix_spawn_file_actions_init(actions);
}

int __real_posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t*, int, int);
int __wrap_posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int from, int to) {
  if (const int error = errorFor(kSpawnActionsAddDup2); error != 0) return error;
  return __real_posix_spawn_file_actions_adddup2(actions, from, to);
}

int __real_posix_spawn_file_actions_destroy(posix_spawn_file_actions_t*);
int __wrap_posix_spawn_file_actions_destroy(posix_spawn_file_actions_t* actions) {
  const int error = errorFor(kSpawnActionsDestroy);
  const int result = __real_posix_spawn_file_actions_destroy(actions);
  return error != 0 ? error : result;
}

int __real_posix_spawnattr_init(posix_spawnattr_t*);
int __wrap_posix_spawnattr_init(posix_spawnattr_t* attributes) {
  if (const int error = errorFor(kSpawnAttributesInit); error != 0) return error;
  return __real_posix_spawnattr_init(attributes);
}

int __real_posix_spawnattr_destroy(posix_spawnattr_t*);
int __wrap_posix_spawnattr_destroy(posix_spawnattr_t* attributes) {
  const int error = errorFor(kSpawnAttributesDestroy);
  const int result = __real_posix_spawnattr_destroy(attributes);
  return error != 0 ? error : result;
}

int __real_posix_spawn(pid_t*, const char*, const posix_spawn_file_actions_t*,
                       const posix_spawnattr_t*, char* const*, char* const*);
int __wrap_posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                       const posix_spawnattr_t* attributes, char* const* arguments,
                       char* const* environment) {
  if (const int error = errorFor(kSpawn); error != 0) return error;
  return __real_posix_spawn(child, path, actions, attributes, arguments, environment);
}

int __real_pipe2(int*, int);
int __wrap_pipe2(int* ends, int flags) {
  return perform(kPipe, -1, [&] { return __real_pipe2(ends, flags); });
}

int __real_flock(int, int);
int __wrap_flock(int fd, int operation) {
  return perform(kFlock, -1, [&] {
    // A lock that nobody gives back fails a test, and does not stop it.
    for (int round = 0; round < kMostLockRounds; ++round) {
      const int result = __real_flock(fd, operation | LOCK_NB);
      if (result == 0 || errno != EWOULDBLOCK || (operation & LOCK_NB) != 0) return result;
      __real_poll(nullptr, 0, 1);
    }
    errno = EDEADLK;
    return -1;
  });
}

int __real_getsockopt(int, int, int, void*, socklen_t*);
int __wrap_getsockopt(int fd, int level, int option, void* value, socklen_t* size) {
  return perform(kGetsockopt, -1,
                 [&] { return __real_getsockopt(fd, level, option, value, size); });
}

int __real_setsockopt(int, int, int, const void*, socklen_t);
int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t size) {
  timeval limit{};
  if (option == SO_RCVTIMEO && receiveLimit > 0) {
    // As much shorter as the test wants ten seconds to be.
    std::memcpy(&limit, value, sizeof limit);
    const long microseconds = limit.tv_sec * 100 * receiveLimit;
    limit = {microseconds / 1'000'000, microseconds % 1'000'000};
    value = &limit;
  }
  return __real_setsockopt(fd, level, option, value, size);
}

int __real_fstatfs(int, struct statfs*);
int __wrap_fstatfs(int fd, struct statfs* volume) {
  const int result = __real_fstatfs(fd, volume);
  if (result == 0 && fileSystem != 0) volume->f_type = fileSystem;
  return result;
}

int __real_sigaction(int, const struct sigaction*, struct sigaction*);
int __wrap_sigaction(int number, const struct sigaction* action, struct sigaction* previous) {
  return perform(kSignal, -1, [&] { return __real_sigaction(number, action, previous); });
}

}  // extern "C"
