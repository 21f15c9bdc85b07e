// Reading plugin descriptions: discovery as a boot does it, against a bare read and parse of the
// same files.
//
// "bare" is what no reader can do without: list the directory, read each file into memory with
// open, fstat, read and close, and have Boost.JSON build its value, from the memory that it is
// quickest with. "discovery" lists the directory and hands each name to discoverPlugin. Both run
// over the same directory, each pass in a process of its own that has read a few other descriptions
// before, so that the code is in memory and nothing else is.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/json.hpp>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <string>

#include "bench/fresh_process.h"
#include "catalogue/discovery.h"
#include "main/run_options.h"
#include "util/unique_fd.h"

namespace bootforge::bench {
namespace {

namespace fs = boost::filesystem;

/// A directory that goes when the program does.
class TemporaryDirectory {
 public:
  TemporaryDirectory()
      : path_(fs::temp_directory_path() / fs::unique_path("bootforge-bench-%%%%%%%%")) {
    fs::create_directory(path_);
  }
  ~TemporaryDirectory() {
    boost::system::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  const fs::path path_;
};

/// About 1 KB, as a platform engineer writes them. Every tenth plugin opens a new milestone.
std::string descriptionOf(std::size_t number) {
  const std::string name = "service-" + std::to_string(number);
  const std::size_t layer = number / 10;
  const std::string before = "layer-" + std::to_string(layer == 0 ? 0 : layer - 1) + "-ready";
  const std::string here = "layer-" + std::to_string(layer) + "-ready";
  return "// Brings up " + name +
         " once its neighbours are there, and tells the operator that it\n"
         "// did. The second command is harmless when the first one has been run before.\n"
         "{\n"
         "  \"metadata\": {\n"
         "    \"version\": 4,\n"
         "    \"requires\": [\"early-fs\", \"network-ready\", \"" +
         before +
         "\"],\n"
         "    \"provides\": [\"" +
         here +
         "\", \"services-ready\"],\n"
         "    \"required_flags\": [],\n"
         "    \"disabling_flags\": [\"maintenance\", \"recovery\"],\n"
         "    \"run_once\": false,\n"
         "    \"plugin_version\": \"2.1\"\n"
         "  },\n"
         "  \"operations\": {\n"
         "    \"start\": [\n"
         "      \"boot file directory --path=/var/lib/nimbus/" +
         name +
         " --mode=0700\",\n"
         "      \"system settings set --option=/services/" +
         name +
         "/enabled --value=true\",\n"
         "      \"network firewall ruleset allow --ruleset=" +
         name +
         " --direction=inbound\",\n"
         "      \"system service start --name=" +
         name +
         " --timeout=30\"\n"
         "    ],\n"
         "    \"apply_host_profile\": [\n"
         "      \"system settings apply --profile=/etc/nimbus/profile.d/" +
         name +
         ".xml\",\n"
         "      \"system service start --name=" +
         name +
         " --timeout=30 --profile=current\"\n"
         "    ]\n"
         "  }\n"
         "}\n";
}

/// A directory of that many descriptions, written on the first call for each size.
const fs::path& descriptions(std::size_t count) {
  static TemporaryDirectory parent;
  static std::map<std::size_t, fs::path> written;
  const auto [place, isNew] = written.try_emplace(count, parent.path() / std::to_string(count));
  const fs::path& directory = place->second;
  if (!isNew) return directory;
  fs::create_directory(directory);
  for (std::size_t i = 0; i < count; ++i) {
    std::ofstream file((directory / ("service-" + std::to_string(i) + ".json")).string());
    file << descriptionOf(i);
    if (!file.flush()) {
      std::cerr << "benchmark: cannot write to " << directory << '\n';
      std::exit(EXIT_FAILURE);
    }
  }
  return directory;
}

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

void readByDiscovery(const fs::path& directory) {
  // The plugins stay for as long as the process, as in a boot.
  auto& catalogue = *new Catalogue;
  Selection selection;
  for (const auto& entry : fs::directory_iterator(directory)) {
    discoverPlugin(entry.path().filename().string(), directory.string(), selection, catalogue);
  }
  benchmark::DoNotOptimize(catalogue.plugins.size());
}

void reading(benchmark::State& state, void (*read)(const fs::path&)) {
  const fs::path& few = descriptions(10);
  const fs::path& many = descriptions(static_cast<std::size_t>(state.range(0)));
  double best = 1e9;
  while (state.KeepRunning()) {
    const double seconds = inFreshProcess([&] { read(few); }, [&] { read(many); });
    state.SetIterationTime(seconds);
    best = std::min(best, seconds);
  }
  state.counters["ns_each"] = best * 1e9 / static_cast<double>(state.range(0));
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {50, 1'000, 10'000}) benchmark->Arg(size);
  benchmark->UseManualTime()->Iterations(5)->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(reading, bare, &readBare)->Apply(sizes);
BENCHMARK_CAPTURE(reading, discovery, &readByDiscovery)->Apply(sizes);

}  // namespace
}  // namespace bootforge::bench

BENCHMARK_MAIN();
