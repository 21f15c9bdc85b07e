// A boot in a few words.
#pragma once

#include <string>
#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// "Boot of 2024-03-05 07:04:09 UTC: 12.3 s on 4 workers, after 7.00 s of kernel", a line about
/// failures and one about what did not run, as far as there is something to say.
std::string bootSummary(const Timeline& timeline, const TextStyle& style);

/// What of a wanted number of columns one plugin took: waiting for a worker light, running dark.
std::string timeBar(const Timeline& timeline, const TimedPlugin& plugin, std::size_t columns);

/// A result for people: nothing for one that went well or is not known.
std::string resultForPeople(const TimedPlugin& plugin, const TextStyle& style);

}  // namespace bootforge::analyze
