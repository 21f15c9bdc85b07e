// The round trip of one command: from the orchestrator to the executor process and back.
//
// "bare" is a UNIX stream socket between two processes with one connection for each request, and
// "bare_spawn" is that and a spawned and awaited /bin/true; bare_executor.cpp has no more in it
// than that. "command" is HypcliExecutor::runCommand with the executor process on the other side,
// for a command that runs /bin/true. "refused" is the same for a command that nobody has defined:
// all of the way but the program, and two log lines. "refused_at_socket" leaves our own client out.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "bench/bare_executor.h"
#include "bench/scratch_host.h"
#include "cli/control_socket.h"
#include "cli/hypcli_executor.h"
#include "util/exception.h"

namespace bootforge::bench {
namespace {

constexpr const char* kBareSocket = "/tmp/bare.sock";
constexpr const char* kSpawnSocket = "/tmp/bare_spawn.sock";
constexpr const char* kCommand = "bench true";
constexpr const char* kUnknownCommand = "bench unknown";
constexpr int kRoundTrips = 200;

/// Reports the time of one round trip.
template <typename RoundTrip>
void measure(benchmark::State& state, RoundTrip roundTrip) {
  double best = 1e9;
  while (state.KeepRunning()) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kRoundTrips; ++i) {
      if (!roundTrip()) giveUp("a round trip failed");
    }
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(spent.count() / kRoundTrips);
    best = std::min(best, spent.count() / kRoundTrips);
  }
  state.counters["best_ns"] = best * 1e9;
}

bool runs(const char* command) {
  try {
    HypcliExecutor::instance().runCommand(command);
    return true;
  } catch (const Exception&) {
    return false;
  }
}

void bare(benchmark::State& state) {
  measure(state, [] { return bareExchange(kBareSocket, kUnknownCommand); });
}
void refusedAtSocket(benchmark::State& state) {
  measure(state, [] { return bareExchange(kControlSocketPath, kUnknownCommand); });
}
void refused(benchmark::State& state) {
  measure(state, [] { return !runs(kUnknownCommand); });
}
void bareSpawn(benchmark::State& state) {
  measure(state, [] { return bareExchange(kSpawnSocket, kCommand); });
}
void command(benchmark::State& state) {
  measure(state, [] { return runs(kCommand); });
}

void passes(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(3)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(bare)->Apply(passes);
BENCHMARK(refusedAtSocket)->Name("refused_at_socket")->Apply(passes);
BENCHMARK(refused)->Apply(passes);
BENCHMARK(bareSpawn)->Name("bare_spawn")->Apply(passes);
BENCHMARK(command)->Apply(passes);

}  // namespace
}  // namespace bootforge::bench

int main(int argc, char** argv) {
  using namespace bootforge;
  benchmark::Initialize(&argc, argv);
  bench::enterScratchHost();
  if (!bench::startBareExecutor(bench::kBareSocket, bench::Request::kNothing) ||
      !bench::startBareExecutor(bench::kSpawnSocket, bench::Request::kRunTrue)) {
    bench::giveUp("bare executor");
  }
  HypcliExecutor::instance().start();
  benchmark::RunSpecifiedBenchmarks();
  HypcliExecutor::instance().stop();
  bench::stopBareExecutor(bench::kBareSocket);
  bench::stopBareExecutor(bench::kSpawnSocket);
}
