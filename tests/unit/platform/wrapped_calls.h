// System calls of the code under test that can be counted and made to fail.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>

namespace bootforge::test {

/// What write(2) does in this process. Reset by its owner: it is for children of a test.
struct WriteBehaviour {
  int calls = 0;
  int failures = 0;      // how many calls from now on fail
  int error = 0;         // ... with this errno
  std::size_t most = 0;  // no call writes more bytes; 0 = no limit
};
extern WriteBehaviour writeBehaviour;

/// How many more calls of epoll_create1(2) succeed before they fail with EMFILE; -1 = all.
extern int epollCreations;

/// The errno that ioctl(2) fails with from now on; 0 = it works.
extern int ioctlError;

/// How often poll(2) was called in this process.
extern std::atomic<int> pollCalls;

/// Called with the timeout, in milliseconds, at the beginning of each poll(2). Set and emptied by
/// its owner, while no other thread polls.
extern std::function<void(int timeout)> beforePoll;

/// What pidfd_open(2) does in this process.
struct PidfdBehaviour {
  int error = 0;    // the errno that it fails with; 0 = it works
  int refused = 0;  // how often it has failed so
};
extern PidfdBehaviour pidfdBehaviour;

/// The errno that close_range(2) fails with when it is called by number; 0 = it works.
extern int closeRangeError;

/// Attributes and file actions of posix_spawn(3) that were made and not destroyed.
extern int spawnObjects;

/// From now on fchdir(2) looks at the signal mask, also in a child that does not share our memory.
void watchFchdir();
/// How many signals that can be blocked were not at the last look; -1 when there was none.
int unblockedAtFchdir();

/// What unlinkat(2) does in this process.
struct RemovalBehaviour {
  std::string path;  // removals from that folder, of names that begin so, fail; empty = none
  int error = 0;     // ... with this errno
};
extern RemovalBehaviour removals;

}  // namespace bootforge::test
