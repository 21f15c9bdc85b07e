// Simulated boots, shown.
#pragma once

#include <cstddef>
#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/simulation.h"

namespace bootforge::analyze {

/// The boot with each of these numbers of workers, beside the recorded one, and how far a
/// simulation of the unchanged boot is off. Throws Exception for a name in `changes` that nobody
/// has.
Answer showSimulations(const Timeline& timeline, const std::vector<KnownPlugin>& known,
                       const Changes& changes, const std::vector<std::size_t>& workers,
                       Format format, const TextStyle& style);

}  // namespace bootforge::analyze
