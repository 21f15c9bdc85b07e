// By how much each plugin could have ended later.
#pragma once

#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// Fills in `slack` of every plugin that ran: by how much its end could be later without the boot's
/// being later, with every dependency and each worker's order as they were. A dependency that the
/// log contradicts binds nobody. Needs starts, ends and workers.
void findSlack(Timeline& timeline);

}  // namespace bootforge::analyze
