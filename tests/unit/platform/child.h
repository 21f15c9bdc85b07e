// Running a piece of a test in a process of its own, for code with process-wide state.
#pragma once

#include <functional>
#include <string>

namespace bootforge::test {

struct Finished {
  int status = -1;  // as waitpid(2) gives it
  std::string out;
  std::string err;
};

/// Forks, runs `body` and waits for it; its standard output and error are collected. The status is
/// 0 when the body returned and no check in it failed. A body that hangs is ended by SIGALRM.
Finished runInChild(const std::function<void()>& body);

/// Sleeps a little between looks until `condition` holds. False when it did not within 20 s.
bool waitUntil(const std::function<bool()>& condition);

}  // namespace bootforge::test
