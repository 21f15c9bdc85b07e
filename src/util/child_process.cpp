#include "util/child_process.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>

namespace bootforge {
namespace {

/// The two signals that the C library keeps for itself and refuses to signal(2). A handler of its
/// own stays, which no other program inherits.
void resetReservedSignals() {
  constexpr std::size_t kSetSize = 8;
  const std::uint64_t defaultAction[8] = {};  // all zero, whatever the order of its members
  for (int signal = 32; signal < SIGRTMIN; ++signal) {
    std::uint64_t action[8] = {};  // begins with the handler
    if (::syscall(SYS_rt_sigaction, signal, nullptr, action, kSetSize) == 0 &&
        action[0] == reinterpret_cast<std::uintptr_t>(SIG_IGN)) {
      ::syscall(SYS_rt_sigaction, signal, defaultAction, nullptr, kSetSize);
    }
  }
}

}  // namespace

void resetSignals() {
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
  resetReservedSignals();
  const sigset_t none{};
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
