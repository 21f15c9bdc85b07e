#include "tests/unit/main/host_calls.h"

#include <sys/sysinfo.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

#include "graph/priority_barrier.h"

namespace {

std::optional<timeval> clockStart;
std::atomic<int> clockCalls = 0;
std::optional<std::time_t> scriptedTime;
std::optional<long> scriptedUptime;
bool firstLevelFails = false;

}  // namespace

namespace bootforge::test {

void scriptClock(timeval start) {
  clockStart = start;
  clockCalls = 0;
}

void scriptTime(std::time_t now) { scriptedTime = now; }
void scriptUptime(long seconds) { scriptedUptime = seconds; }
void failFirstPriorityLevel() { firstLevelFails = true; }

void resetHostCalls() {
  clockStart.reset();
  scriptedTime.reset();
  scriptedUptime.reset();
  firstLevelFails = false;
}

}  // namespace bootforge::test

extern "C" {

int __real_gettimeofday(timeval*, void*);
int __wrap_gettimeofday(timeval* time, void* zone) {
  if (!clockStart) return __real_gettimeofday(time, zone);
  const int calls = clockCalls++;
  time->tv_sec = clockStart->tv_sec + calls;
  time->tv_usec = clockStart->tv_usec + calls;
  return 0;
}

std::time_t __real_time(std::time_t*);
std::time_t __wrap_time(std::time_t* now) {
  if (!scriptedTime) return __real_time(now);
  if (now != nullptr) *now = *scriptedTime;
  return *scriptedTime;
}

int __real_sysinfo(struct sysinfo*);
int __wrap_sysinfo(struct sysinfo* information) {
  if (!scriptedUptime) return __real_sysinfo(information);
  if (*scriptedUptime < 0) {
    errno = EFAULT;
    return -1;
  }
  *information = {};
  information->uptime = *scriptedUptime;
  return 0;
}

}  // extern "C"

// A function of the program itself: the linker knows it by its mangled name.
bootforge::PriorityBarrier&
realPriorityBarrierFor(bootforge::BarrierRegistry& barriers, std::uint32_t priority) __asm__(
    "__real__ZN9bootforge18priorityBarrierForERNS_15BarrierRegistryEj");
bootforge::PriorityBarrier&
wrappedPriorityBarrierFor(bootforge::BarrierRegistry& barriers, std::uint32_t priority) __asm__(
    "__wrap__ZN9bootforge18priorityBarrierForERNS_15BarrierRegistryEj");
bootforge::PriorityBarrier& wrappedPriorityBarrierFor(bootforge::BarrierRegistry& barriers,
                                                      std::uint32_t priority) {
  if (std::exchange(firstLevelFails, false)) throw 42;
  return realPriorityBarrierFor(barriers, priority);
}
