// Measuring whole runs of programs on the scratch host.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace bootforge::bench {

inline constexpr const char* kProgram = "/usr/sbin/bootforge";

/// As many workers as the program has with --parallel, where there are plugins enough.
int parallelWorkers();

/// A text that the output of a run holds that many times, if all of it took place.
struct Said {
  std::string text;
  std::size_t times = 0;
};

/// Measures runs of a program, from the fork to its end; before the next one starts, all that it
/// left behind has ended too. Ends this process with a message when a run fails, when it speaks of
/// a failure or does not say what it has to.
void measureRun(benchmark::State& state, const std::vector<std::string>& words,
                const Said& said = {});

/// Measures starts of a program that says nothing we want to hear, many times over.
void measureStart(benchmark::State& state, const std::vector<std::string>& words);

/// Registration of both.
void runs(benchmark::internal::Benchmark* benchmark);
void starts(benchmark::internal::Benchmark* benchmark);

}  // namespace bootforge::bench
