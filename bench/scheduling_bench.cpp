// What the graph and the executor cost a node that does nothing, by shape, size and workers.
//
// "scheduling" is one whole pass: every node is scheduled, run and waited for. The floor is what no
// scheduler of this kind can do without: a lock and a priority queue, through which each node goes
// once. Both report time per node.

#include <benchmark/benchmark.h>

#include <chrono>
#include <queue>

#include "bench/drawn_graph.h"
#include "graph/executor.h"

namespace bootforge::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Shape = DrawnGraph (*)(std::size_t);

void scheduling(benchmark::State& state, Shape shape) {
  double best = 1e9;
  while (state.KeepRunning()) {
    const DrawnGraph nodes = shape(static_cast<std::size_t>(state.range(0)));
    const Graph graph = nodes.graph();
    Executor executor(static_cast<std::int32_t>(state.range(1)), false);
    const auto start = Clock::now();
    graph.runForward(executor);
    const std::chrono::duration<double> spent = Clock::now() - start;
    state.SetIterationTime(spent.count());
    best = std::min(best, spent.count());
  }
  state.counters["ns_per_node"] = best * 1e9 / static_cast<double>(state.range(0));
}

/// A lock and a priority queue alone, with as many nodes in the queue as the shape has ready.
void floorOf(benchmark::State& state, std::size_t ready) {
  const auto size = static_cast<std::size_t>(state.range(0));
  double best = 1e9;
  while (state.KeepRunning()) {
    std::priority_queue<std::pair<std::size_t, std::size_t>> queue;
    const auto start = Clock::now();
    std::size_t pushed = 0;
    std::size_t popped = 0;
    while (popped < size) {
      for (; pushed < size && pushed - popped < ready; ++pushed) {
        ScopedLock lock(graphLock);
        queue.emplace(0, size - pushed);
      }
      ScopedLock lock(graphLock);
      benchmark::DoNotOptimize(queue.top());
      queue.pop();
      ++popped;
    }
    const std::chrono::duration<double> spent = Clock::now() - start;
    state.SetIterationTime(spent.count());
    best = std::min(best, spent.count());
  }
  state.counters["ns_per_node"] = best * 1e9 / static_cast<double>(size);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int workers : {1, 2, 4}) {
    for (const int size : {1'000, 10'000, 100'000, 1'000'000}) benchmark->Args({size, workers});
  }
  benchmark->UseManualTime()->Iterations(5)->Unit(benchmark::kMicrosecond);
}

void floorSizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {1'000, 10'000, 100'000, 1'000'000}) benchmark->Args({size});
  benchmark->UseManualTime()->Iterations(5)->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(floorOf, chain, 1)->Apply(floorSizes);
BENCHMARK_CAPTURE(floorOf, fan, ~std::size_t{0})->Apply(floorSizes);
BENCHMARK_CAPTURE(floorOf, layered, 100)->Apply(floorSizes);
BENCHMARK_CAPTURE(scheduling, chain, &DrawnGraph::chain)->Apply(sizes);
BENCHMARK_CAPTURE(scheduling, fan, &DrawnGraph::fan)->Apply(sizes);
BENCHMARK_CAPTURE(scheduling, layered, &DrawnGraph::layered)->Apply(sizes);

}  // namespace
}  // namespace bootforge::bench

BENCHMARK_MAIN();
