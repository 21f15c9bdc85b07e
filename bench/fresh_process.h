// Timing in a process of its own.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>

namespace bootforge::bench {

/// Forks, calls `prepare` and then `work` in the child, and returns the seconds that `work` took.
/// So each pass meets a heap and a set of milestones that no pass before it has used. Ends this
/// process with a message when the child does not report.
double inFreshProcess(const std::function<void()>& prepare, const std::function<void()>& work);

/// Times every pass of a benchmark with manual time so; its first argument is how many things the
/// work goes through, and the counter "ns_each" the least time for one of them.
void timeInFreshProcesses(benchmark::State& state, const std::function<void()>& prepare,
                          const std::function<void()>& work);

}  // namespace bootforge::bench
