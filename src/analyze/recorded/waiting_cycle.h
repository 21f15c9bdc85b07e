// Plugins that wait for each other.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "analyze/recorded/dependencies.h"

namespace bootforge::analyze {

/// A shortest cycle among the plugins that wait, in the direction of waiting: plugin, milestone,
/// plugin and so on, ending where it began; of several the one that begins with the name that sorts
/// first. Empty when there is none.
std::vector<std::string> shortestCycle(const std::vector<KnownPlugin>& plugins,
                                       const Dependencies& dependencies,
                                       const std::vector<bool>& isWaiting);

}  // namespace bootforge::analyze
