// A daemon with an init script.
#pragma once

#include <cstdint>
#include <string>

#include "plugins/daemon_plugin.h"

namespace bootforge {

/// Starts and stops by the script, and takes its place among the levels of priority.
class LegacyDaemonPlugin : public DaemonPlugin {
 public:
  /// Scripts of a lower priority start earlier and stop later. Takes the graph lock.
  LegacyDaemonPlugin(std::string name, const std::string& script, std::int32_t priority,
                     BarrierRegistry& barriers);

  void applyHostProfile() override;
};

}  // namespace bootforge
