// A root directory of its own for a test program, so that tests may use the fixed absolute paths of
// the code under test (/dev/kmsg, /etc, /var/run/nimbus, ...) and never touch the host's.
//
// enter() forks. The parent supervises: it waits for the child, ends what the tests left behind,
// removes the directory and passes the exit status on, also when the tests crash or are
// interrupted. The child runs the tests. It is inside the root while tests run and outside before
// and after, so that the test framework's report and the coverage counters land where they belong.
//
// Each test starts in a fresh root with the working directory "/": whatever earlier tests (or the
// set-up of a suite) wrote is gone.
#pragma once

#include <sys/types.h>

#include <string>

namespace bootforge::test {

class ScratchRoot {
 public:
  /// To be called once by main, between InitGoogleTest and RUN_ALL_TESTS, while the process has one
  /// thread. Returns in the process that is to run the tests. Does nothing when the tests are only
  /// to be listed. An ordinary user gets the root in a user namespace; where the host refuses that,
  /// the program says so and exits with kSkipped.
  static void enter();

  /// The exit status that means "could not be tested here".
  static constexpr int kSkipped = 77;
};

/// Replaces or makes a file, with its directories. Fails the running test when that is impossible.
void writeFile(const std::string& path, const std::string& text, mode_t mode = 0644);

/// The content of a file; empty, and a failure of the running test, when it cannot be read.
std::string readFile(const std::string& path);

/// True also for a dangling symbolic link.
bool exists(const std::string& path);

/// How many descriptors below 4096 this process has open.
int countOpenDescriptors();

}  // namespace bootforge::test
