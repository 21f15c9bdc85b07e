// Command lines under /bin/sh. What they start has three descriptors, the default disposition of
// every signal and none blocked, which system(3) and popen(3) would pass on as this process has
// them: a "yes | head -n 1" that ignores SIGPIPE never ends.
#pragma once

#include <sys/types.h>

#include <string>

#include "util/unique_fd.h"

namespace bootforge {

/// Runs a command line on our standard streams and waits for it, as system(3) does: returns its
/// status, that of an exit with 127 when there is no shell, or -1 and errno when no process could
/// be made or its status could not be had. Signals to this process are not held back meanwhile. Any
/// thread.
int runShell(const std::string& commandLine);

/// What a command line writes to its standard output, as with popen(3).
class ShellOutput {
 public:
  /// Starts the command line.
  explicit ShellOutput(const std::string& commandLine);
  /// Waits for the shell; what it goes on writing then finds nobody.
  ~ShellOutput();
  ShellOutput(const ShellOutput&) = delete;
  ShellOutput& operator=(const ShellOutput&) = delete;

  /// The end to read from; none when nothing could be started.
  const UniqueFd& pipe() const { return pipe_; }
  /// Why there is none, as an errno value; 0 otherwise.
  int error() const { return error_; }

 private:
  UniqueFd pipe_;
  pid_t shell_ = -1;
  int error_ = 0;
};

}  // namespace bootforge
