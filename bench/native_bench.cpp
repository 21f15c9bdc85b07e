// Native plugins in whole runs of the installed program.
//
// "boot" is bootforge --init over a directory of copies of one small shared object: each is loaded
// once to be described, and once more, in a process of its own, to be started. "floor" is
// bench/floor_spawn over the same objects: it loads, searches and unloads each, and then runs
// bench/bare_dlopen, one process for each, with as many workers.
//
// "executor" is one start of the native executor, "bare" one of bench/bare_dlopen.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench/sample_boots.h"
#include "bench/scratch_host.h"
#include "bench/whole_run.h"

namespace bootforge::bench {
namespace {

constexpr const char* kPlugin = "/bench/idle_plugin.so";
constexpr const char* kBareDlopen = "/bench/bare_dlopen";

std::string directory(std::int64_t count) { return "/bench/native/" + std::to_string(count); }

std::string commands(std::int64_t count) { return directory(count) + ".commands"; }

void writePlugins(int count) {
  copyNativePlugins(directory(count), count);
  std::string list;
  for (int i = 0; i < count; ++i) {
    const std::string path = directory(count) + "/libplugin-" + std::to_string(i) + ".so";
    list += std::string(kBareDlopen) + ' ' + path + '\n';
  }
  writeHostFile(commands(count), list);
}

void boot(benchmark::State& state, const char* option) {
  const auto count = state.range(0);
  std::vector<std::string> words{kProgram, "--init", "--plugin-directory=" + directory(count)};
  if (option != nullptr) words.emplace_back(option);
  measureRun(state, words, {"executing start plugin", static_cast<std::size_t>(count)});
}

void floorOf(benchmark::State& state, bool parallel) {
  const int workers = parallel ? parallelWorkers() : 1;
  measureRun(state,
             {"/bench/floor_spawn", std::to_string(workers), commands(state.range(0)), "metadata"});
}

void start(benchmark::State& state, const std::vector<std::string>& words) {
  measureStart(state, words);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {50, 200, 1'000}) benchmark->Arg(size);
  runs(benchmark);
}

BENCHMARK_CAPTURE(floorOf, serial, false)->Name("native/floor/serial")->Apply(sizes);
BENCHMARK_CAPTURE(floorOf, parallel, true)->Name("native/floor/parallel")->Apply(sizes);
BENCHMARK_CAPTURE(boot, serial, nullptr)->Name("native/boot/serial")->Apply(sizes);
BENCHMARK_CAPTURE(boot, parallel, "--parallel")->Name("native/boot/parallel")->Apply(sizes);
BENCHMARK_CAPTURE(start, bare, {kBareDlopen, kPlugin})->Name("native/bare")->Apply(starts);
BENCHMARK_CAPTURE(start, executor,
                  {"/usr/lib/nimbus/bootforge/nativeExecutor", kPlugin, "idle_plugin", "start"})
    ->Name("native/executor")
    ->Apply(starts);

}  // namespace
}  // namespace bootforge::bench

int main(int argc, char** argv) {
  using namespace bootforge::bench;
  benchmark::Initialize(&argc, argv);
  enterScratchHost();
  for (const int size : {50, 200, 1'000}) writePlugins(size);
  benchmark::RunSpecifiedBenchmarks();
}
