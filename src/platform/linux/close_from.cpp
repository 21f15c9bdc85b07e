#include "platform/linux/close_from.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace host_linux {

void closeFrom(int first) {
  if (::syscall(SYS_close_range, first, ~0U, 0) == 0) return;
  // The C library reads what is open from /proc, and ends the process where that is not mounted.
  if (::access("/proc/self/fd", R_OK) == 0) {
    ::closefrom(first);
    return;
  }
  // The limit may be a thousand million, but no kernel without close_range(2) hands out numbers
  // beyond this one unless it was told to.
  constexpr rlim_t kMost = 1 << 20;
  rlimit limit{kMost, kMost};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const int end = static_cast<int>(std::min(limit.rlim_cur, kMost));
  for (int fd = first; fd < end; ++fd) ::close(fd);
}

}  // namespace host_linux
