#include "util/child_process.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>

namespace bootforge {

void resetSignals() {
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

// Such descriptors are close-on-exec from birth.
ChildEnd::ChildEnd(pid_t child) : handle_(static_cast<int>(::syscall(SYS_pidfd_open, child, 0))) {}

void ChildEnd::sleep(int milliseconds) {
  pollfd end{handle_.get(), POLLIN, 0};
  // A negative descriptor is passed over, so that without a handle this is a plain sleep.
  if (::poll(&end, 1, milliseconds) == 1) handle_.reset();
}

}  // namespace bootforge
