// Running one program to its end.
#pragma once

#include <string>
#include <vector>

namespace host_linux {

struct ProgramEnd {
  /// Why the program could not be started or awaited; empty when it ran to its end.
  std::string failure;
  /// As waitpid(2) gives it.
  int status = 0;
  /// The first 64 KiB of what it wrote to standard error.
  std::string standardError;
  /// How much more it wrote.
  std::size_t dropped = 0;

  bool endedWell() const { return failure.empty() && status == 0; }
};

/// Runs `words[0]`, an absolute path, with the arguments `words`: standard input from /dev/null,
/// standard output that of this process, no other descriptors, default signal dispositions, no
/// signal blocked. Returns when it has ended, also when a process that it left behind still has
/// its standard error open.
ProgramEnd runProgram(const std::vector<std::string>& words);

}  // namespace host_linux
