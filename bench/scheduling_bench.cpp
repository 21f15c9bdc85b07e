// What the graph and the executor cost a node that does nothing, by shape, size and workers.
//
// "scheduling" is one whole pass: every node is scheduled, run and waited for. The floor is what no
// scheduler of this kind can do without: a lock and a priority queue, through which each node goes
// once. The peer is the flow graph of oneTBB with the same nodes and edges: what a scheduler costs
// that keeps no order among ready nodes. All report time per node.

#include <benchmark/benchmark.h>

#ifdef BOOTFORGE_BENCH_ONETBB
#include <oneapi/tbb/flow_graph.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>
#endif

#include <chrono>
#include <deque>
#include <queue>

#include "bench/drawn_graph.h"
#include "graph/executor.h"

namespace bootforge::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Shape = Drawing (*)(std::size_t);

/// Times `run` for each repetition of the benchmark, with what `make` has made of the drawing.
template <typename Make, typename Run>
void timeEach(benchmark::State& state, Make make, Run run) {
  double best = 1e9;
  while (state.KeepRunning()) {
    auto made = make();
    const auto start = Clock::now();
    run(made);
    const std::chrono::duration<double> spent = Clock::now() - start;
    state.SetIterationTime(spent.count());
    best = std::min(best, spent.count());
  }
  state.counters["ns_per_node"] = best * 1e9 / static_cast<double>(state.range(0));
}

void scheduling(benchmark::State& state, Shape shape) {
  struct Made {
    DrawnGraph nodes;
    Graph graph;
    Executor executor;
    Made(const Drawing& drawing, std::int64_t workers)
        : nodes(drawing), graph(nodes.graph()), executor(static_cast<int>(workers), false) {}
  };
  const Drawing drawing = shape(static_cast<std::size_t>(state.range(0)));
  timeEach(
      state, [&] { return Made(drawing, state.range(1)); },
      [](Made& made) { made.graph.runForward(made.executor); });
}

#ifdef BOOTFORGE_BENCH_ONETBB

void flowGraph(benchmark::State& state, Shape shape) {
  namespace tbb = oneapi::tbb;
  using tbb::flow::continue_msg;
  using tbb::flow::continue_node;
  struct Made {
    tbb::task_arena arena;
    tbb::flow::graph graph;
    std::deque<continue_node<continue_msg>> nodes;
    std::vector<continue_node<continue_msg>*> ready;

    Made(const Drawing& drawing, int workers) : arena(workers) {
      arena.execute([&] { graph.reset(); });
      for (std::size_t i = 0; i < drawing.size; ++i) {
        nodes.emplace_back(graph, [](const continue_msg& message) { return message; });
      }
      std::vector<bool> waits(drawing.size);
      for (const auto& [before, after] : drawing.edges) {
        tbb::flow::make_edge(nodes[before], nodes[after]);
        waits[after] = true;
      }
      for (std::size_t i = 0; i < drawing.size; ++i) {
        if (!waits[i]) ready.push_back(&nodes[i]);
      }
    }
  };
  const auto workers = static_cast<int>(state.range(1));
  const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                                  static_cast<std::size_t>(workers));
  const Drawing drawing = shape(static_cast<std::size_t>(state.range(0)));
  timeEach(
      state, [&] { return Made(drawing, workers); },
      [](Made& made) {
        made.arena.execute([&made] {
          for (auto* node : made.ready) node->try_put(continue_msg());
          made.graph.wait_for_all();
        });
      });
}

#endif

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
BENCHMARK_CAPTURE(floorOf, layers, 100)->Apply(floorSizes);
BENCHMARK_CAPTURE(floorOf, milestones, 100)->Apply(floorSizes);
BENCHMARK_CAPTURE(scheduling, chain, &Drawing::chain)->Apply(sizes);
BENCHMARK_CAPTURE(scheduling, fan, &Drawing::fan)->Apply(sizes);
BENCHMARK_CAPTURE(scheduling, layers, &Drawing::layers)->Apply(sizes);
BENCHMARK_CAPTURE(scheduling, milestones, &Drawing::milestones)->Apply(sizes);
#ifdef BOOTFORGE_BENCH_ONETBB
BENCHMARK_CAPTURE(flowGraph, chain, &Drawing::chain)->Apply(sizes);
BENCHMARK_CAPTURE(flowGraph, fan, &Drawing::fan)->Apply(sizes);
BENCHMARK_CAPTURE(flowGraph, layers, &Drawing::layers)->Apply(sizes);
BENCHMARK_CAPTURE(flowGraph, milestones, &Drawing::milestones)->Apply(sizes);
#endif

}  // namespace
}  // namespace bootforge::bench

BENCHMARK_MAIN();
