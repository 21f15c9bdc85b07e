// What a boot that hangs is waiting for.
#pragma once

#include <vector>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/known_plugin.h"
#include "analyze/recorded/messages_reader.h"

namespace bootforge::analyze {

/// What has begun and not ended, what has not begun and for what it waits, and where nothing runs
/// and something waits, the cycle. Status 1 when something runs or waits.
Answer showStuck(const std::vector<KnownPlugin>& known, const BootMessages& messages, Format format,
                 const TextStyle& style);

}  // namespace bootforge::analyze
