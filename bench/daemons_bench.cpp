// Whole runs of the installed program in daemon mode.
//
// The init scripts are all alike, and the service-configuration tool prints a list. "shell" scripts
// are those of "#!/bin/sh"; "static" ones are a program that ends at once, so that hardly anything
// but the spawn is left. Both stand on one level, since the floor knows no order; "chain" is shell
// scripts with a level for each. Of each kind "start" and "stop" are measured, serial and with
// --parallel, and waiting ("wait") or not ("nowait").
//
// "floor" is bench/floor_spawn over the same command lines, with one worker and with as many as
// --parallel makes.

#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <boost/filesystem/operations.hpp>
#include <string>
#include <vector>

#include "bench/scratch_host.h"
#include "bench/whole_run.h"

namespace bootforge::bench {
namespace {

namespace fs = boost::filesystem;

// What the service-configuration tool prints.
constexpr const char* kList = "/bench/init-scripts";
constexpr const char* kIdleScript = "/bench/idle_script";

struct Scripts {
  std::string kind;
  int count;
  int levels;

  std::string folder() const { return "/bench/" + kind + '/' + std::to_string(count); }
  /// PATH PRIORITY, as the tool prints it.
  std::string list() const { return folder() + "/list"; }
  /// The command lines of a start.
  std::string commands() const { return folder() + "/commands"; }
  std::string suffix() const { return '/' + std::to_string(count); }
};

void writeProgram(const std::string& path, const std::string& text) {
  writeHostFile(path, text);
  if (::chmod(path.c_str(), 0755) != 0) giveUp(path);
}

void write(const Scripts& scripts) {
  std::string list;
  std::string commands;
  for (int i = 0; i < scripts.count; ++i) {
    const std::string name = "script-" + std::to_string(i);
    const std::string path = scripts.folder() + "/init.d/" + name;
    if (scripts.kind == "static") {
      fs::create_directories(scripts.folder() + "/init.d");
      fs::create_hard_link(kIdleScript, path);
    } else {
      writeProgram(path, "#!/bin/sh\nexit 0\n");
    }
    list += path + ' ' + std::to_string(i * scripts.levels / scripts.count) + '\n';
    commands += path + " ++group=init/" + name + " start\n";
  }
  writeHostFile(scripts.list(), list);
  writeHostFile(scripts.commands(), commands);
}

void floorOf(benchmark::State& state, const Scripts& scripts, int workers) {
  measureRun(state, {"/bench/floor_spawn", std::to_string(workers), scripts.commands()});
}

void daemonRun(benchmark::State& state, const Scripts& scripts, const std::string& method,
               const std::string& mode, bool parallel) {
  fs::remove(kList);
  fs::create_symlink(scripts.list(), kList);
  std::vector<std::string> words{kProgram, "--daemon=" + mode, "--method=" + method};
  if (parallel) words.emplace_back("--parallel");
  measureRun(
      state, words,
      {method == "start" ? " started.\n" : " stopped.\n", static_cast<std::size_t>(scripts.count)});
}

/// As in "daemons/shell/start/wait/parallel/200".
void registerAll(const Scripts& scripts, const std::vector<std::string>& modes) {
  const std::string name = "daemons/" + scripts.kind;
  for (const bool parallel : {false, true}) {
    const std::string workers = parallel ? "/parallel" : "/serial";
    const int count = parallel ? parallelWorkers() : 1;
    runs(benchmark::RegisterBenchmark((name + "/floor" + workers + scripts.suffix()).c_str(),
                                      floorOf, scripts, count));
    for (const std::string method : {"start", "stop"}) {
      for (const std::string& mode : modes) {
        const std::string full = name + '/' + method + '/' + mode + workers + scripts.suffix();
        runs(
            benchmark::RegisterBenchmark(full.c_str(), daemonRun, scripts, method, mode, parallel));
      }
    }
  }
}

}  // namespace
}  // namespace bootforge::bench

int main(int argc, char** argv) {
  using namespace bootforge::bench;
  benchmark::Initialize(&argc, argv);
  enterScratchHost();
  std::vector<Scripts> all;
  for (const int size : {50, 200, 1'000}) all.push_back({"shell", size, 1});
  for (const int size : {200, 1'000}) all.push_back({"static", size, 1});
  all.push_back({"chain", 1'000, 1'000});
  for (const Scripts& scripts : all) {
    write(scripts);
    const bool both = scripts.kind == "shell";
    registerAll(scripts, both ? std::vector<std::string>{"wait", "nowait"}
                              : std::vector<std::string>{"wait"});
  }
  benchmark::RunSpecifiedBenchmarks();
}
