// Looking into an image of many descriptions, against the orchestrator's own reading of them.
//
// "discovery" hands each name of the folder to discoverPlugin, as a boot does. "verify" reads the
// image and looks for every defect, "plan" reads it and has the executor choose among its nodes.
// All run over the same folder, each pass in a process of its own that has read a few other
// descriptions before.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <boost/filesystem/directory.hpp>

#include "analyze/image/image.h"
#include "analyze/image/wait_graph.h"
#include "analyze/planning/plan.h"
#include "analyze/verify/checks.h"
#include "bench/fresh_process.h"
#include "bench/sample_descriptions.h"
#include "catalogue/discovery.h"

namespace bootforge::bench {
namespace {

namespace fs = boost::filesystem;

// What is made stays for as long as the process, as in a boot and in the analyzer.

void readByDiscovery(const fs::path& directory) {
  auto& catalogue = *new Catalogue;
  Selection selection;
  for (const auto& entry : fs::directory_iterator(directory)) {
    discoverPlugin(entry.path().filename().string(), directory.string(), selection, catalogue);
  }
  benchmark::DoNotOptimize(catalogue.plugins.size());
}

analyze::Image& imageOf(const fs::path& directory) {
  analyze::ImageOptions options;
  options.pluginDirectory = directory.string();
  return *new analyze::Image(options);
}

void verifyImage(const fs::path& directory) {
  benchmark::DoNotOptimize(analyze::verify(imageOf(directory), 0).size());
}

void planImage(const fs::path& directory) {
  analyze::Image& image = imageOf(directory);
  const analyze::WaitGraph graph(image);
  benchmark::DoNotOptimize(analyze::planBoot(image, graph, false).order.size());
}

void images(benchmark::State& state, void (*look)(const fs::path&)) {
  const fs::path& few = descriptions(10);
  const fs::path& many = descriptions(static_cast<std::size_t>(state.range(0)));
  double best = 1e9;
  while (state.KeepRunning()) {
    const double seconds = inFreshProcess([&] { look(few); }, [&] { look(many); });
    state.SetIterationTime(seconds);
    best = std::min(best, seconds);
  }
  state.counters["ns_each"] = best * 1e9 / static_cast<double>(state.range(0));
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {1'000, 10'000, 100'000}) benchmark->Arg(size);
  benchmark->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(images, discovery, &readByDiscovery)->Apply(sizes);
BENCHMARK_CAPTURE(images, verify, &verifyImage)->Apply(sizes);
BENCHMARK_CAPTURE(images, plan, &planImage)->Apply(sizes);

}  // namespace
}  // namespace bootforge::bench

BENCHMARK_MAIN();
