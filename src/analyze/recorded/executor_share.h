// What plugins would have taken, had they not had to share the CLI executor.
#pragma once

#include <cstddef>
#include <vector>

#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// Fills in `work`, `exactWork` and `waitExecutor` of every plugin that ran. Where k plugins with
/// commands run at the same time, each advances at 1/k. Exact, unless so many numbers of plugins
/// share the executor that 64 bits do not hold their common multiple.
void shareExecutor(std::vector<TimedPlugin>& plugins);

}  // namespace bootforge::analyze
