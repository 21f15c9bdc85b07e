// The plugins of a run.
#pragma once

#include <deque>
#include <memory>

#include "plugins/plugin.h"

namespace bootforge {

/// Owns its plugins, in the order in which they were found. Plugins are destroyed from the last to
/// the first, which is the quick order for their edges.
class PluginList : public std::deque<std::unique_ptr<Plugin>> {
 public:
  PluginList() = default;
  PluginList(const PluginList&) = delete;
  PluginList& operator=(const PluginList&) = delete;
  ~PluginList() {
    while (!empty()) pop_back();
  }
};

}  // namespace bootforge
