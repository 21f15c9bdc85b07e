// A recorded boot as a picture.
#pragma once

#include "analyze/recorded/answer.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// The time line as SVG: a row for each plugin that ran, by start, with its waits; the critical
/// chain stands out. It loads nothing and holds no script.
Answer plot(const Timeline& timeline);

}  // namespace bootforge::analyze
