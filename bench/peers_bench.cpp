// The same work by programs of other makers that run commands in the order of a graph: so many
// services, ten to a layer, each of which runs /bin/true once.
//
// "floor" is bench/floor_spawn, which knows no order. "make" and "ninja" are those programs; all of
// these have two workers. "json" and "native" are bootforge --init --parallel over plugins of those
// kinds, with as many workers as it takes.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <boost/filesystem/operations.hpp>
#include <string>
#include <vector>

#include "bench/sample_boots.h"
#include "bench/scratch_host.h"
#include "bench/whole_run.h"

namespace bootforge::bench {
namespace {

constexpr const char* kTrue = "/bin/true";
constexpr const char* kMake = "/usr/bin/make";
constexpr const char* kNinja = "/usr/bin/ninja";

std::string folder(std::int64_t count) { return "/bench/peers/" + std::to_string(count); }

std::string service(int number) { return "service-" + std::to_string(number); }

std::string layer(int number) { return "layer-" + std::to_string(number); }

/// A makefile has a rule for each service and for each layer, which waits for its services.
void writeFiles(int count) {
  std::string makefile = ".SUFFIXES:\nall:\n";
  std::string ninja = "rule run\n  command = " + std::string(kTrue) + '\n';
  std::string commands;
  std::string services;
  for (int i = 0; i < count; ++i) {
    const int own = i / kServicesInLayer;
    const std::string before = own == 0 ? "" : ' ' + layer(own - 1);
    makefile += service(i) + ':' + before + "\n\t@" + kTrue + '\n';
    ninja += "build " + service(i) + ": run" + (own == 0 ? "" : " |" + before) + '\n';
    commands += std::string(kTrue) + '\n';
    services += ' ' + service(i);
    if ((i + 1) % kServicesInLayer == 0 || i + 1 == count) {
      makefile += layer(own) + ':' + services + '\n';
      ninja += "build " + layer(own) + ": phony" + services + '\n';
      services.clear();
    }
  }
  const std::string last = layer((count - 1) / kServicesInLayer);
  writeHostFile(folder(count) + "/Makefile", makefile + "all: " + last + '\n');
  writeHostFile(folder(count) + "/build.ninja", ninja + "default " + last + '\n');
  writeHostFile(folder(count) + "/commands", commands);
}

void peer(benchmark::State& state, const std::vector<std::string>& words) {
  std::vector<std::string> full = words;
  full.push_back(folder(state.range(0)));
  measureRun(state, full);
}

void floorOf(benchmark::State& state) {
  measureRun(state, {"/bench/floor_spawn", "2", folder(state.range(0)) + "/commands"});
}

void boot(benchmark::State& state, const std::string& kind) {
  const auto count = state.range(0);
  measureRun(state,
             {kProgram, "--init", "--parallel", "--plugin-directory=" + folder(count) + '/' + kind},
             {"executing start plugin", static_cast<std::size_t>(count)});
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {50, 200, 1'000}) benchmark->Arg(size);
  runs(benchmark);
}

}  // namespace
}  // namespace bootforge::bench

int main(int argc, char** argv) {
  using namespace bootforge::bench;
  benchmark::Initialize(&argc, argv);
  enterScratchHost();
  for (const int size : {50, 200, 1'000}) {
    writeFiles(size);
    writeLayeredPlugins(folder(size) + "/json", size);
    copyNativePlugins(folder(size) + "/native", size);
  }
  sizes(benchmark::RegisterBenchmark("peers/floor", floorOf));
  sizes(benchmark::RegisterBenchmark("peers/json", boot, "json"));
  sizes(benchmark::RegisterBenchmark("peers/native", boot, "native"));
  if (::access(kMake, X_OK) == 0) {
    sizes(benchmark::RegisterBenchmark("peers/make", peer,
                                       std::vector<std::string>{kMake, "--silent", "-j2", "-C"}));
  }
  if (::access(kNinja, X_OK) == 0) {
    sizes(benchmark::RegisterBenchmark("peers/ninja", peer,
                                       std::vector<std::string>{kNinja, "--quiet", "-j2", "-C"}));
  }
  benchmark::RunSpecifiedBenchmarks();
}
