#include "plugins/debug_plugin.h"

#include "platform/log.h"
#include "plugins/exceptions.h"
#include "util/shell.h"

namespace bootforge {

DebugPlugin::DebugPlugin(const DebugEntry& entry, BarrierRegistry& barriers)
    : Plugin(entry.name), command_(entry.command) {
  for (const std::string& milestone : entry.provides) provide(barriers, milestone);
  for (const std::string& milestone : entry.requires_) require(barriers, milestone);
  apiVersion_ = 1;
}

void DebugPlugin::start() {
  const int status = runShell(command_);
  if (status == 0) return;
  Log_Level(5, "debug injection '%s' returned %#08x\n", name().c_str(),
            static_cast<unsigned>(status));
}

void DebugPlugin::applyHostProfile() {
  throw NotImplementedException("DebugPlugin::ApplyHostProfile");
}

}  // namespace bootforge
