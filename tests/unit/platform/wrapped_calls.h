// System calls of the code under test that can be counted and made to fail.
#pragma once

#include <atomic>
#include <cstddef>
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

/// How often poll(2) was called in this process.
extern std::atomic<int> pollCalls;

/// What pidfd_open(2) does in this process.
struct PidfdBehaviour {
  int error = 0;    // the errno that it fails with; 0 = it works
  int refused = 0;  // how often it has failed so
};
extern PidfdBehaviour pidfdBehaviour;

/// What unlinkat(2) does in this process.
struct RemovalBehaviour {
  std::string path;  // removals of paths that begin so fail; empty = none
  int error = 0;     // ... with this errno
};
extern RemovalBehaviour removals;

}  // namespace bootforge::test
