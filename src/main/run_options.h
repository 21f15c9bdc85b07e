// The run options: one set for the process. A leaf that every room may include.
#pragma once

#include <cstdint>
#include <list>
#include <string>

namespace bootforge {

/// Filled from the command line by the main thread, and only read once the run has begun. Two
/// members change later, on the one worker of an interactive run: `interactive` (the operator chose
/// to continue) and `interactiveModeRequires` (listed plugins that have run are taken out).
struct RunOptions {
  /// The process's options, made on the first call under the graph lock and never freed.
  static RunOptions& instance();

  RunOptions();

  bool verbose = false;
  bool parallel = false;
  bool randomize = false;
  bool interactive = false;
  bool trace = false;
  std::uint32_t threadCount = 1;
  /// Recorded in the profiling log only: a randomized run draws from the unseeded rand(3).
  std::int64_t randomSeed;
  std::string pluginDirectory;
  std::list<std::string> disabledPlugins;
  std::list<std::string> interactiveModeRequires;
  std::string method;
  bool invoke = false;
  bool daemonWait = false;
  std::uint32_t daemonWaitTimeout = 40;  // seconds
  char** environment = nullptr;
};

}  // namespace bootforge
