// What the levels of priority cost a script, without starting anything: making the scripts and
// their levels ("build"), and running the graph of them on one worker in both directions ("start",
// "stop").
//
// The scripts stand on "one" level, or each has a level of its own, made from the lowest to the
// highest as the list of init scripts has them ("ascending"), in random order ("shuffled"), or
// below one that is the highest and was made first, as after a script of a negative priority
// ("below"). Each pass runs in a process of its own that has made a few scripts before.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bench/fresh_process.h"
#include "catalogue/catalogue.h"
#include "graph/executor.h"
#include "graph/graph.h"
#include "graph/priority_barrier.h"
#include "tests/support/barriers.h"

namespace bootforge::bench {
namespace {

class IdleScript : public Plugin {
 public:
  IdleScript(std::string name, std::uint32_t priority) : Plugin(std::move(name), 3) {
    ScopedLock lock(graphLock);
    attachToPriority(test::barriers(), priorityBarrierFor(test::barriers(), priority), *this);
  }
  void run(Executor& /*executor*/) override {}
  void start() override {}
  bool supportsApplyHostProfile() const override { return false; }
  void applyHostProfile() override {}
};

using Priorities = std::vector<std::uint32_t>;

constexpr std::uint32_t kLowest = 1000;

Priorities one(std::size_t size) { return Priorities(size, kLowest); }

Priorities ascending(std::size_t size) {
  Priorities priorities(size);
  std::iota(priorities.begin(), priorities.end(), kLowest);
  return priorities;
}

Priorities shuffled(std::size_t size) {
  Priorities priorities = ascending(size);
  std::shuffle(priorities.begin(), priorities.end(), std::mt19937(1));
  return priorities;
}

Priorities below(std::size_t size) {
  Priorities priorities = ascending(size);
  std::rotate(priorities.begin(), priorities.end() - 1, priorities.end());
  return priorities;
}

void build(const Priorities& priorities, PluginList& scripts) {
  for (const std::uint32_t priority : priorities) {
    scripts.push_back(std::make_unique<IdleScript>("script", priority));
  }
}

PluginList& newList() { return *new PluginList; }  // stays for as long as the process, as in a run

void warmUp() {
  PluginList& few = newList();
  Priorities lower(10);
  std::iota(lower.begin(), lower.end(), 0U);
  build(lower, few);
}

void measure(benchmark::State& state, const std::function<double(const Priorities&)>& pass,
             Priorities (*priorities)(std::size_t)) {
  const Priorities each = priorities(static_cast<std::size_t>(state.range(0)));
  double best = 1e9;
  while (state.KeepRunning()) {
    const double seconds = pass(each);
    state.SetIterationTime(seconds);
    best = std::min(best, seconds);
  }
  state.counters["ns_each"] = best * 1e9 / static_cast<double>(state.range(0));
}

void building(benchmark::State& state, Priorities (*priorities)(std::size_t)) {
  const auto pass = [](const Priorities& each) {
    return inFreshProcess(&warmUp, [&] { build(each, newList()); });
  };
  measure(state, pass, priorities);
}

void running(benchmark::State& state, Priorities (*priorities)(std::size_t),
             void (Graph::*run)(Executor&) const) {
  const auto pass = [run](const Priorities& each) {
    std::unique_ptr<Graph> graph;
    std::unique_ptr<Executor> executor;
    const auto prepare = [&] {
      warmUp();
      PluginList& scripts = newList();
      build(each, scripts);
      std::vector<Node*> nodes;
      nodes.reserve(scripts.size());
      for (const auto& script : scripts) nodes.push_back(script.get());
      graph = std::make_unique<Graph>(std::move(nodes));
      executor = std::make_unique<Executor>(1, false);
    };
    return inFreshProcess(prepare, [&] { ((*graph).*run)(*executor); });
  };
  measure(state, pass, priorities);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {100, 1'000, 10'000}) benchmark->Arg(size);
  benchmark->UseManualTime()->Iterations(9)->Unit(benchmark::kMicrosecond);
}

void registerAll(const std::string& name, Priorities (*priorities)(std::size_t)) {
  const auto named = [&](const char* what) { return "priority/" + name + '/' + what; };
  sizes(benchmark::RegisterBenchmark(named("build").c_str(), building, priorities));
  sizes(benchmark::RegisterBenchmark(named("start").c_str(), running, priorities,
                                     &Graph::runForward));
  sizes(
      benchmark::RegisterBenchmark(named("stop").c_str(), running, priorities, &Graph::runReverse));
}

}  // namespace
}  // namespace bootforge::bench

int main(int argc, char** argv) {
  using namespace bootforge::bench;
  benchmark::Initialize(&argc, argv);
  registerAll("one", one);
  registerAll("ascending", ascending);
  registerAll("shuffled", shuffled);
  registerAll("below", below);
  benchmark::RunSpecifiedBenchmarks();
}
