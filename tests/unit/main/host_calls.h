// What the host tells the program about time, and a failure of no known kind. All of it is set in a
// test's process and inherited by the processes that it forks afterwards.
#pragma once

#include <sys/time.h>

#include <ctime>

namespace bootforge::test {

/// From now on gettimeofday(2) gives this time, and with each further call in a process one second
/// and one microsecond more.
void scriptClock(timeval start);

/// From now on time(2) gives this time.
void scriptTime(std::time_t now);

/// From now on sysinfo(2) gives this uptime in seconds, or fails when it is below 0.
void scriptUptime(long seconds);

/// From now on the first level of priorities that a process asks for is none: what is thrown is no
/// std::exception.
void failFirstPriorityLevel();

/// Everything is as the host has it again.
void resetHostCalls();

}  // namespace bootforge::test
