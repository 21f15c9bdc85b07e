// A shell command that somebody wants run at a chosen point of the boot.
#pragma once

#include <string>

#include "plugins/plugin.h"
#include "reading/debug_configuration.h"

namespace bootforge {

class DebugPlugin : public Plugin {
 public:
  DebugPlugin(const DebugEntry& entry, BarrierRegistry& barriers);

  /// Runs the command through the shell and waits for it. A command that fails is a
  /// line in the log, never a failure of the plugin.
  void start() override;
  bool supportsApplyHostProfile() const override { return false; }
  void applyHostProfile() override;

 private:
  const std::string command_;
};

}  // namespace bootforge
