// A shell command that somebody wants run at a chosen point of the boot.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "plugins/debug_configuration.h"
#include "plugins/plugin.h"

namespace bootforge {

class DebugPlugin : public Plugin {
 public:
  DebugPlugin(std::string name, const std::list<std::string>& provides,
              const std::list<std::string>& requires_, std::string command);

  /// Runs the command through the shell and waits for it. A command that fails is a
  /// line in the log, never a failure of the plugin.
  void start() override;
  bool supportsApplyHostProfile() const override { return false; }
  void applyHostProfile() override;

 private:
  const std::string command_;
};

/// The plugin of one injection.
std::unique_ptr<DebugPlugin> makeDebugPlugin(const DebugEntry& entry);

}  // namespace bootforge
