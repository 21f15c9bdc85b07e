// The critical chain, shown.
#pragma once

#include <optional>
#include <string>

#include "analyze/recorded/answer.h"
#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

/// The chain to the end of the boot or to a named plugin; status 1 when that one did not run.
Answer showCriticalChain(const Timeline& timeline, const std::optional<std::string>& name,
                         Format format, const TextStyle& style);

}  // namespace bootforge::analyze
