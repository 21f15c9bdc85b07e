// What took how long in a recorded boot.
#pragma once

#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

enum class BlameOrder { Start, Run, Wait, Slack };

/// Every plugin of the boot: by start or slack ascending, by run or by wait (for milestones and
/// workers) descending; equal ones by name; those that did not run last.
std::vector<const TimedPlugin*> inOrder(const Timeline& timeline, BlameOrder order);

/// The same with their times.
Answer blame(const Timeline& timeline, BlameOrder order, Format format, const TextStyle& style);

}  // namespace bootforge::analyze
