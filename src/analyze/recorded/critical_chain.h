// What kept a boot from ending sooner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "analyze/recorded/timeline.h"

namespace bootforge::analyze {

struct ChainLink {
  enum class After { Start, Worker, Milestone };

  std::size_t plugin = 0;
  After after = After::Start;  // what its start waited for
  std::size_t waitedFor = 0;   // the plugin, unless it was the start of the boot
  std::string milestone;       // or level, through which it waited
  std::int64_t gap = 0;        // microseconds from the end of what it waited for to its start
};

/// The chain that leads to a plugin that ran, by default to the one that ended last; first to last.
/// Empty when nothing ran.
std::vector<ChainLink> criticalChain(const Timeline& timeline,
                                     std::optional<std::size_t> to = std::nullopt);

}  // namespace bootforge::analyze
