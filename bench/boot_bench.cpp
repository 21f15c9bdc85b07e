// Whole runs of the installed program.
//
// "boot" is bootforge --init over a directory of descriptions with one command each, /bin/true;
// "parallel" adds that option. "floor" is bench/floor_boot with the same number of commands. Each
// pass is a process of its own.
//
// "dump" is bootforge --dump-dependency-tree over many of them: all of a boot but the run.
//
// "help" is bootforge --help, "true" is /bin/true.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench/sample_boots.h"
#include "bench/scratch_host.h"
#include "bench/whole_run.h"

namespace bootforge::bench {
namespace {

std::string pluginDirectory(std::int64_t count) {
  return "/bench/plugins/" + std::to_string(count);
}

void boot(benchmark::State& state, const char* option) {
  const auto count = state.range(0);
  std::vector<std::string> words{kProgram, "--init",
                                 "--plugin-directory=" + pluginDirectory(count)};
  if (option != nullptr) words.emplace_back(option);
  measureRun(state, words, {"executing start plugin", static_cast<std::size_t>(count)});
}

void floorOf(benchmark::State& state) {
  measureRun(state, {"/bench/floor_boot", std::to_string(state.range(0))});
}

void dump(benchmark::State& state) {
  const std::string directory = pluginDirectory(state.range(0));
  measureRun(state,
             {kProgram, "--dump-dependency-tree=/dev/null", "--plugin-directory=" + directory});
}

void startUp(benchmark::State& state, const std::vector<std::string>& words) {
  measureStart(state, words);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {50, 200, 1'000}) benchmark->Arg(size);
  runs(benchmark);
}

BENCHMARK(floorOf)->Name("boot/floor")->Apply(sizes);
BENCHMARK_CAPTURE(boot, serial, nullptr)->Apply(sizes);
BENCHMARK_CAPTURE(boot, parallel, "--parallel")->Apply(sizes);
BENCHMARK(dump)->Name("boot/dump")->Arg(100'000)->Apply(runs);
BENCHMARK_CAPTURE(startUp, true, {"/bin/true"})->Apply(starts);
BENCHMARK_CAPTURE(startUp, help, {kProgram, "--help"})->Apply(starts);

}  // namespace
}  // namespace bootforge::bench

int main(int argc, char** argv) {
  using namespace bootforge::bench;
  benchmark::Initialize(&argc, argv);
  enterScratchHost();
  for (const int size : {50, 200, 1'000, 100'000}) {
    writeLayeredPlugins(pluginDirectory(size), size);
  }
  benchmark::RunSpecifiedBenchmarks();
}
