// A recorded boot as a page for a browser.
#pragma once

#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/known_plugin.h"
#include "analyze/recorded/messages_reader.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// One HTML file that loads nothing: time line, plugins, critical chain and graph, with all that
/// `blame` and `critical-chain` know. `messages` may be null.
Answer report(const Timeline& timeline, const std::vector<KnownPlugin>& known,
              const BootMessages* messages);

}  // namespace bootforge::analyze
