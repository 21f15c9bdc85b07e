// Children: their signals, and waiting for one with a limit.
#pragma once

#include <sys/types.h>

#include "util/unique_fd.h"

namespace bootforge {

/// Gives every signal its default disposition and blocks none, whatever this process has set or
/// inherited: for a forked child, before it becomes another program. Async-signal-safe.
void resetSignals();

/// Tells when a child of this process ends, pidfd_open(2). The child must not have been reaped when
/// this is made.
class ChildEnd {
 public:
  explicit ChildEnd(pid_t child);

  /// Sleeps until the child has ended, or for so many milliseconds; always that long on kernels
  /// without such descriptors. The end cuts one sleep short, not those after it: while a tracer has
  /// the ended child, it cannot be reaped, and whoever looks again and again would not sleep at
  /// all.
  void sleep(int milliseconds);

 private:
  UniqueFd handle_;
};

}  // namespace bootforge
