// The boots of many hosts, by the analyzer.
//
// "bytes" is what no reader can do without: list the folder and read each log into memory. "fleet"
// reads the same logs, of 200 plugins each, and answers what the verb answers. Each pass runs in a
// process of its own, over logs that are in memory.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem/directory.hpp>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <random>
#include <string>

#include "analyze/recorded/fleet.h"
#include "bench/fresh_process.h"
#include "bench/temporary_directory.h"
#include "util/unique_fd.h"

namespace bootforge::bench {
namespace {

namespace fs = boost::filesystem;

constexpr int kPlugins = 200;

std::string stamp(int microseconds) {
  return fmt::format("2026-03-05 07:04:{:02}.{:06}", 10 + microseconds / 1'000'000,
                     microseconds % 1'000'000);
}

std::string drawLog(std::mt19937& random) {
  std::uniform_int_distribution<int> draw(500, 30'000);
  std::string text = "HVKernel Initialization Time: 4000000\n";
  int moment = 0;
  for (int plugin = 0; plugin < kPlugins; ++plugin) {
    const int end = moment + draw(random);
    text += fmt::format("[{} - {}] sysboot: plugin-of-the-host-{:03}\n", stamp(moment), stamp(end),
                        plugin);
    if (plugin % 4 == 3) moment = end;
  }
  return text + "=== Bootforge configuration info ===\n Start: " + stamp(0) +
         "\n End: " + stamp(moment) +
         "\n Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 5\n";
}

/// A folder with the logs of so many hosts, made once; it goes when the program does.
std::string logs(std::int64_t hosts) {
  static const TemporaryDirectory parent;
  const fs::path folder = parent.path() / std::to_string(hosts);
  if (!fs::create_directory(folder)) return folder.string();
  std::mt19937 random(1);
  for (std::int64_t host = 0; host < hosts; ++host) {
    std::ofstream file((folder / fmt::format("host{:05}.log", host)).string());
    if (!(file << drawLog(random)).flush()) std::abort();
  }
  return folder.string();
}

void readBytes(const std::string& folder) {
  std::string text;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const UniqueFd file(::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) std::abort();
    text.resize(static_cast<std::size_t>(status.st_size));
    if (::read(file.get(), text.data(), text.size()) != status.st_size) std::abort();
    benchmark::DoNotOptimize(text.data());
  }
}

void readFleet(const std::string& folder) {
  analyze::Fleet fleet(std::nullopt, false);
  if (!fleet.add(folder)) std::abort();
  const analyze::Answer answer = fleet.answer(true, analyze::Format::Json, {});
  if (answer.status != 0 || answer.output.empty()) std::abort();
}

void reading(benchmark::State& state, void (*read)(const std::string&)) {
  const std::string few = logs(10);
  const std::string many = logs(state.range(0));
  timeInFreshProcesses(
      state, [&] { read(few); }, [&] { read(many); });
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {1'000, 10'000}) benchmark->Arg(size);
  benchmark->UseManualTime()->Iterations(3)->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(reading, bytes, &readBytes)->Apply(sizes);
BENCHMARK_CAPTURE(reading, fleet, &readFleet)->Apply(sizes);

}  // namespace
}  // namespace bootforge::bench

BENCHMARK_MAIN();
