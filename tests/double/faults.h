// System calls that fail when a test says so. Link `bootforge_faults` to have them.
//
// Only calls made by objects of the executable are seen, which includes static libraries but not
// the C library's own calls. What is armed and counted is shared with forked children, so a test
// can reach into a process that runs already. Any thread.
#pragma once

#include <functional>
#include <string_view>

namespace bootforge::doubles {

/// In which processes a fault strikes. "This" is the process that arms it.
enum class Where { kEverywhere, kThisProcess, kOtherProcesses };

struct Fault {
  int error;      // errno, or the returned number where that is how the call reports errors
  int times = 1;  // how many calls fail
  int skip = 0;   // how many calls go through before that
  Where where = Where::kEverywhere;
};

/// Makes coming calls fail; replaces what was armed for the call. Known calls: socket, connect,
/// bind, listen, accept (also accept4), recv, send, fork, waitpid, daemon, rename, chmod (also
/// fchmod), stat, mkstemp (also mkostemp), fsync, read, close, pthread_cond_init, pthread_create,
/// dup2, open, kill, chdir, setsid, calloc, snprintf, signal (also sigaction), poll, posix_spawn,
/// spawn_init, spawn_dup2 and spawn_destroy (of posix_spawn_file_actions), spawnattr_init and
/// spawnattr_destroy, pipe (pipe2), flock, getsockopt. Any other name aborts. What closes or
/// destroys does so also when it fails. A lock that nobody gives back within some 10 s is refused
/// with EDEADLK, armed or not.
void failCall(std::string_view call, Fault fault);

/// Runs `action` once, in this process, right after the next call of that name that succeeds.
void afterCall(std::string_view call, std::function<void()> action);

/// Makes every coming poll(2) wait without limit, so that only an event ends it.
void pollWithoutLimit();

/// Makes the next so many looks at a child, waitpid(2) with WNOHANG, find it running, as they do
/// while a tracer has a child that has ended.
void hideEnds(int looks);

/// Makes every file seem to be on a file system of that type, statfs(2).
void reportFileSystem(long type);

/// Makes a limit of 10 s for receiving on a socket this long, and others in proportion. For this
/// process and those that it forks from now on.
void receiveWithin(int milliseconds);

/// How often the call was made since the last resetFaults(), failed ones included.
int callCount(std::string_view call, Where where = Where::kEverywhere);

/// Disarms everything, gives the host its own ways back and puts all counts to 0. The calling
/// process becomes the one that counts as "this" until something is armed elsewhere.
void resetFaults();

}  // namespace bootforge::doubles
