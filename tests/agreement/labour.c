// Works for a while: sleeps, then computes, for so many milliseconds each. Built without REQUIRES
// it is a program for commands and init scripts, with it a native plugin that is told by the build.
#define _GNU_SOURCE
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#ifdef REQUIRES
#include "bootforge/plugin.h"
#endif

static double now(void) {
  struct timespec moment;
  clock_gettime(CLOCK_MONOTONIC, &moment);
  return (double)moment.tv_sec * 1e3 + (double)moment.tv_nsec / 1e6;
}

static void labour(double sleeping, double computing) {
  // The number of workers is chosen by narrowing the orchestrator's processors; those that work for
  // it get all of them back.
  cpu_set_t all;
  memset(&all, 0xFF, sizeof all);
  sched_setaffinity(0, sizeof all, &all);
  const double begin = now();
  const struct timespec length = {(time_t)(sleeping / 1e3), (long)(sleeping * 1e6) % 1000000000L};
  nanosleep(&length, NULL);
  while (now() < begin + sleeping + computing) continue;
}

#ifdef REQUIRES
static const char* const kRequires[] = {REQUIRES NULL};
static const char* const kProvides[] = {PROVIDES NULL};

static int entry(void) {
  labour(SLEEPS, COMPUTES);
  return 0;
}

BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1, .requires_ = kRequires, .provides = kProvides};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {entry, NULL};
#else
int main(int count, char** words) {
  if (count != 3) return 2;
  labour(atof(words[1]), atof(words[2]));
  return 0;
}
#endif
