// A recorded boot with another number of workers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "analyze/recorded/known_plugin.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// What is changed before a boot is simulated, by name.
struct Changes {
  std::vector<std::pair<std::string, std::int64_t>> work;  // microseconds in place of the recorded
  std::vector<std::string> without;                        // left out
  // Plugins that do their work themselves, in place of commands for the executor.
  std::vector<std::string> native = {};
};

/// One plugin of a simulated boot, in microseconds from its begin.
struct SimulatedRun {
  std::string name;
  long double start = 0;
  long double end = 0;
  std::size_t worker = 0;
};

struct Simulation {
  std::size_t workers = 0;
  long double makespan = 0;
  long double busy = 0;            // of all workers together
  long double executorBusy = 0;    // while at least one plugin used it
  std::vector<SimulatedRun> runs;  // in the order in which they were begun
};

/// The boot that the orchestrator's nodes and its choice among them make of the recorded work. What
/// uses the CLI executor shares it.
Simulation simulate(const Timeline& timeline, const std::vector<KnownPlugin>& known,
                    const Changes& changes, std::size_t workers);

/// Rounded, and no more than 64 bits hold.
std::int64_t wholeMicroseconds(long double microseconds);

}  // namespace bootforge::analyze
