#include "bench/whole_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string_view>
#include <thread>

#include "bench/scratch_host.h"
#include "main/profiling_log.h"

namespace bootforge::bench {
namespace {

constexpr const char* kOutput = "/var/log/bench.log";

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

std::size_t countOf(std::string_view text, std::string_view where) {
  std::size_t count = 0;
  for (auto place = where.find(text); place != where.npos; place = where.find(text, place + 1)) {
    ++count;
  }
  return count;
}

/// A plugin that fails does not fail the run, so the status alone says little.
bool wentWell(const Said& said) {
  std::ifstream file(kOutput);
  const std::string output{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return countOf("failed", output) == 0 &&
         (said.times == 0 || countOf(said.text, output) == said.times);
}

}  // namespace

int parallelWorkers() { return 2 * static_cast<int>(std::thread::hardware_concurrency()); }

void measureRun(benchmark::State& state, const std::vector<std::string>& words, const Said& said) {
  const std::vector<char*> arguments = pointersTo(words);
  double best = 1e9;
  double processor = 1e9;
  long peak = 0;
  long executorPeak = 0;
  while (state.KeepRunning()) {
    ::unlink(kOutput);
    // Runs that append to it would be slower from pass to pass.
    ::unlink(kProfilingLog);
    const Ended ended = runToEnd(arguments.data(), kOutput);
    if (ended.status != 0 || !wentWell(said)) giveUp(words[0] + " failed, see " + kOutput);
    state.SetIterationTime(ended.seconds);
    best = std::min(best, ended.seconds);
    processor = std::min(processor, ended.processor);
    peak = std::max(peak, ended.peakKib);
    executorPeak = std::max(executorPeak, ended.othersPeakKib);
  }
  state.counters["best_ns"] = best * 1e9;
  state.counters["processor_ns"] = processor * 1e9;
  state.counters["peak_kib"] = static_cast<double>(peak);
  state.counters["executor_peak_kib"] = static_cast<double>(executorPeak);
}

void measureStart(benchmark::State& state, const std::vector<std::string>& words) {
  constexpr int kStarts = 20;
  const std::vector<char*> arguments = pointersTo(words);
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
      if (::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
        giveUp(words[0]);
      }
      ::waitpid(child, &status, 0);
      const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
      if (status != 0) giveUp(words[0]);
      total += spent.count();
      best = std::min(best, spent.count());
    }
    state.SetIterationTime(total / kStarts);
  }
  state.counters["best_ns"] = best * 1e9;
  posix_spawn_file_actions_destroy(&actions);
}

void runs(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
}

void starts(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(3)->Unit(benchmark::kMicrosecond);
}

}  // namespace bootforge::bench
