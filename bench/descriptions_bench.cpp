// Reading plugin descriptions, by the orchestrator and by the analyzer.
//
// "bare" is what no reader can do without: list the directory, read each file into memory with
// open, fstat, read and close, and have Boost.JSON build its value, from the memory that it is
// quickest with. "discovery" lists the directory and hands each name to discoverPlugin, as a boot
// does. "verify" reads the image and looks for every defect, "plan" reads it and has the executor
// choose among its nodes. All run over the same directory, each pass in a process of its own that
// has read a few other descriptions before, so that the code is in memory and nothing else is.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/directory.hpp>
#include <boost/json.hpp>
#include <cstdlib>
#include <set>
#include <string>

#include "analyze/image/image.h"
#include "analyze/image/wait_graph.h"
#include "analyze/planning/plan.h"
#include "analyze/verify/checks.h"
#include "bench/fresh_process.h"
#include "bench/sample_descriptions.h"
#include "catalogue/discovery.h"
#include "main/run_options.h"
#include "util/unique_fd.h"

namespace bootforge::bench {
namespace {

namespace fs = boost::filesystem;

void readBare(const fs::path& directory) {
  boost::json::parse_options options;
  options.allow_comments = true;
  std::string text;
  for (const auto& entry : fs::directory_iterator(directory)) {
    const UniqueFd file(::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) std::abort();
    text.resize(static_cast<std::size_t>(status.st_size));
    if (::read(file.get(), text.data(), text.size()) != status.st_size) std::abort();
    unsigned char buffer[4096];
    boost::json::monotonic_resource memory(buffer, sizeof buffer);
    benchmark::DoNotOptimize(boost::json::parse(text, &memory, options));
  }
}

// What these make stays for as long as the process, as in a boot and in the analyzer.

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

void reading(benchmark::State& state, void (*read)(const fs::path&)) {
  const fs::path& few = descriptions(10);
  const fs::path& many = descriptions(static_cast<std::size_t>(state.range(0)));
  timeInFreshProcesses(
      state, [&] { read(few); }, [&] { read(many); });
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {50, 1'000, 10'000, 100'000}) benchmark->Arg(size);
  benchmark->UseManualTime()->Iterations(3)->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(reading, bare, &readBare)->Apply(sizes);
BENCHMARK_CAPTURE(reading, discovery, &readByDiscovery)->Apply(sizes);
BENCHMARK_CAPTURE(reading, verify, &verifyImage)->Apply(sizes);
BENCHMARK_CAPTURE(reading, plan, &planImage)->Apply(sizes);

}  // namespace
}  // namespace bootforge::bench

BENCHMARK_MAIN();
