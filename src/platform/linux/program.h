// Running one program to its end.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace host_linux {

struct ProgramEnd {
  /// Why the program could not be started or awaited; empty when it ran to its end.
  std::string failure;
  /// As waitpid(2) gives it.
  int status = 0;
  /// Whether its time was over before it ended; `status` is then how it took its signals.
  bool timedOut = false;
  /// The first 64 KiB of what it wrote to standard error.
  std::string standardError;
  /// How much more it wrote.
  std::size_t dropped = 0;

  bool endedWell() const { return failure.empty() && status == 0 && !timedOut; }
};

/// Runs `words[0]`, an absolute path, with the arguments `words`: standard input from /dev/null,
/// standard output that of this process, no other descriptors, default signal dispositions, no
/// signal blocked. Returns when it has ended. A process that it left behind with its standard error
/// open holds nothing up, and can write there for ever.
///
/// With a limit in seconds the program has a process group of its own. When the time is over, the
/// group gets SIGTERM, and 2 s later, unless all of it has ended, SIGKILL. What not even that ends,
/// in a call of the kernel that does not return, is given up after 2 s more.
ProgramEnd runProgram(const std::vector<std::string>& words, std::optional<double> limit = {});

}  // namespace host_linux
