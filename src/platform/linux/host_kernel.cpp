#include "platform/host_kernel.h"

#include <sched.h>

#include <cerrno>
#include <memory>

extern "C" int HvkSyscall_ProcessorCount(std::uint32_t* count) {
  // The kernel refuses a set smaller than its own with EINVAL and does not say how large that is.
  for (int capacity = CPU_SETSIZE;; capacity *= 2) {
    auto free = [](cpu_set_t* set) { CPU_FREE(set); };
    std::unique_ptr<cpu_set_t, decltype(free)> set(CPU_ALLOC(static_cast<std::size_t>(capacity)));
    if (!set) return ENOMEM;
    std::size_t size = CPU_ALLOC_SIZE(static_cast<std::size_t>(capacity));
    if (sched_getaffinity(0, size, set.get()) == 0) {
      *count = static_cast<std::uint32_t>(CPU_COUNT_S(size, set.get()));
      return 0;
    }
    constexpr int kMostProcessors = 1 << 20;
    if (errno != EINVAL || capacity >= kMostProcessors) return errno;
  }
}
