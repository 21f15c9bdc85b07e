#include "platform/linux/default_signals.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>

namespace host_linux {

void defaultSignals() {
  constexpr int kLastSignal = 64;
  constexpr std::size_t kSetSize = 8;
  const std::uint64_t defaultAction[8] = {};  // all zero, whatever the order of its members
  for (int signal = 1; signal <= kLastSignal; ++signal) {
    ::syscall(SYS_rt_sigaction, signal, defaultAction, nullptr, kSetSize);
  }
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace host_linux
