// Waiting for a child with a limit.
#pragma once

#include <sys/types.h>

#include "util/unique_fd.h"

namespace bootforge {

/// Tells when a child of this process ends, pidfd_open(2). The child must not have been reaped when
/// this is made.
class ChildEnd {
 public:
  explicit ChildEnd(pid_t child);

  /// Sleeps until the child has ended, or for so many milliseconds; always that long on kernels
  /// without such descriptors.
  void sleep(int milliseconds) const;

 private:
  UniqueFd handle_;
};

}  // namespace bootforge
