// The plugins of a run.
#pragma once

#include <deque>
#include <memory>

#include "graph/barrier_registry.h"
#include "plugins/plugin.h"

namespace bootforge {

inline constexpr const char* kDefaultPluginDirectory = BOOTFORGE_PLUGIN_DIR;

/// Owns its plugins, in the order in which they were found.
using PluginList = std::deque<std::unique_ptr<Plugin>>;

/// All that reading a host's plugins makes. Barriers go first in the end, and the edges of plugins
/// with them: a plugin has few, a barrier may have many.
struct Catalogue {
  PluginList plugins;
  /// Those that flags or lists are against: done from the start, and milestones are tied to them.
  PluginList leftOut;
  BarrierRegistry barriers;
};

}  // namespace bootforge
