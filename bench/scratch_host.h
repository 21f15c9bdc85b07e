// The small host that bench/run makes for the benchmarks that need one: a root directory of their
// own, with the installed program and /bin/true in it.
#pragma once

#include <sys/types.h>

#include <string>

namespace bootforge::bench {

/// Ends the program with a message unless it runs in such a root: elsewhere the fixed paths that a
/// boot uses are those of the machine. Sets the host up: the command "bench true", which runs
/// /bin/true, and a thread that reads away what is written to /dev/kmsg and /dev/log.
void enterScratchHost();

/// Writes a file of the host, with its directories. Ends the program when that fails.
void writeHostFile(const std::string& path, const std::string& text);

/// Prints the failure of a system call and ends the program.
[[noreturn]] void giveUp(const std::string& what);

/// How a program and the processes that it left behind ended.
struct Ended {
  double seconds = 0;      // from the call to the end of the program
  int status = 0;          // its, as waitpid(2) gives it
  double processor = 0;    // seconds of processor time, with all that it started
  long peakKib = 0;        // its peak resident memory
  long othersPeakKib = 0;  // the greatest among those that it left behind
};

/// Runs a program with its output appended to a file, waits for it and for all that it left
/// behind. The process must have no other children.
Ended runToEnd(const char* const words[], const char* output);

}  // namespace bootforge::bench
