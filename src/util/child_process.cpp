#include "util/child_process.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bootforge {

// Such descriptors are close-on-exec from birth.
ChildEnd::ChildEnd(pid_t child) : handle_(static_cast<int>(::syscall(SYS_pidfd_open, child, 0))) {}

void ChildEnd::sleep(int milliseconds) const {
  pollfd end{handle_.get(), POLLIN, 0};
  // A negative descriptor is passed over, so that without a handle this is a plain sleep.
  ::poll(&end, 1, milliseconds);
}

}  // namespace bootforge
