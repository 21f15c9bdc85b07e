// Whole runs of the installed program.
//
// "boot" is bootforge --init over a directory of descriptions with one command each, /bin/true;
// "parallel" adds that option. "floor" is bench/floor_boot with the same number of commands. Each
// pass is a process of its own, measured from its fork to its end; before the next one starts, the
// executor that it left behind has ended too.
//
// "help" is bootforge --help, "true" is /bin/true.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

#include "bench/scratch_host.h"

namespace bootforge::bench {
namespace {

constexpr const char* kProgram = "/usr/sbin/bootforge";
constexpr const char* kOutput = "/var/log/bench.log";

std::string pluginDirectory(int count) { return "/bench/plugins/" + std::to_string(count); }

/// Ten plugins in each layer, which open the milestone that the next layer waits for.
void writePlugins(int count) {
  for (int i = 0; i < count; ++i) {
    const std::string here = "layer-" + std::to_string(i / 10);
    const std::string before = i < 10 ? "" : "\"layer-" + std::to_string(i / 10 - 1) + '"';
    writeHostFile(pluginDirectory(count) + "/plugin-" + std::to_string(i) + ".json",
                  "{\n"
                  "  \"metadata\": {\n"
                  "    \"version\": 1,\n"
                  "    \"requires\": [" +
                      before +
                      "],\n"
                      "    \"provides\": [\"" +
                      here +
                      "\"]\n"
                      "  },\n"
                      "  \"operations\": {\"start\": [\"bench true\"]}\n"
                      "}\n");
  }
}

void measureBoot(benchmark::State& state, const char* const words[]) {
  double best = 1e9;
  long peak = 0;
  long executorPeak = 0;
  while (state.KeepRunning()) {
    ::unlink(kOutput);
    const Ended ended = runToEnd(words, kOutput);
    if (ended.status != 0) giveUp(std::string(words[0]) + " failed, see " + kOutput);
    state.SetIterationTime(ended.seconds);
    best = std::min(best, ended.seconds);
    peak = std::max(peak, ended.peakKib);
    executorPeak = std::max(executorPeak, ended.othersPeakKib);
  }
  state.counters["best_ns"] = best * 1e9;
  state.counters["peak_kib"] = static_cast<double>(peak);
  state.counters["executor_peak_kib"] = static_cast<double>(executorPeak);
}

void boot(benchmark::State& state, const char* option) {
  const std::string directory =
      "--plugin-directory=" + pluginDirectory(static_cast<int>(state.range(0)));
  const char* const words[] = {kProgram, "--init", directory.c_str(), option, nullptr};
  measureBoot(state, words);
}

void floorOf(benchmark::State& state) {
  const std::string count = std::to_string(state.range(0));
  const char* const words[] = {"/bench/floor_boot", count.c_str(), nullptr};
  measureBoot(state, words);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {50, 200, 1'000}) benchmark->Arg(size);
  benchmark->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

/// Starts a program that says nothing we want to hear, many times over.
void startUp(benchmark::State& state, const char* program, const char* option) {
  constexpr int kStarts = 20;
  char* const words[] = {const_cast<char*>(program), const_cast<char*>(option), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  double best = 1e9;
  while (state.KeepRunning()) {
    double total = 0;
    for (int i = 0; i < kStarts; ++i) {
      const auto start = std::chrono::steady_clock::now();
      pid_t child = 0;
      int status = 1;
      if (::posix_spawn(&child, program, &actions, nullptr, words, environ) != 0) giveUp(program);
      ::waitpid(child, &status, 0);
      const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
      if (status != 0) giveUp(program);
      total += spent.count();
      best = std::min(best, spent.count());
    }
    state.SetIterationTime(total / kStarts);
  }
  state.counters["best_ns"] = best * 1e9;
  posix_spawn_file_actions_destroy(&actions);
}

void starts(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(3)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(floorOf)->Name("boot/floor")->Apply(sizes);
BENCHMARK_CAPTURE(boot, serial, nullptr)->Apply(sizes);
BENCHMARK_CAPTURE(boot, parallel, "--parallel")->Apply(sizes);
BENCHMARK_CAPTURE(startUp, true, "/bin/true", nullptr)->Apply(starts);
BENCHMARK_CAPTURE(startUp, help, kProgram, "--help")->Apply(starts);

}  // namespace
}  // namespace bootforge::bench

int main(int argc, char** argv) {
  using namespace bootforge::bench;
  benchmark::Initialize(&argc, argv);
  enterScratchHost();
  for (const int size : {50, 200, 1'000}) writePlugins(size);
  benchmark::RunSpecifiedBenchmarks();
}
